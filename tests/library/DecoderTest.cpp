#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "LibraryTest.h"
#include "Player/QELMultiResDecoder.h"
#include "Player/QELSampleDecoder.h"

namespace Moravel::Player {

using fake::At;
using fake::LogLine;
using orl::mv::logging::ILogger;
using testing::ElementsAre;
using testing::IsEmpty;

const char* const kDecoderHeader = "Player/QELSampleDecoder.h";
const char* const kDecoderFile = "Player/QELSampleDecoder.cpp";
const char* const kNotFound =
    "Could not find sample with valid channel in sample container: cannot decode";

qel::SampleConstPtr Encoded(const std::string& streamId, std::vector<int> channels) {
  return fake::MakeSample(streamId, std::move(channels), fake::MakeBuffer(1));
}

class DecoderTest : public fake::LibraryTest {
 protected:
  DecoderTest() {
    element_->input_ = fake::MakeInfoContainer({fake::MakeInfo("input")});
    element_->outputs_ = {fake::MakeContainer({fake::MakePicture()})};
    decoder_.SetDecoder({element_, element_});
    sample_.SetDuration(At(1, 1, 25));
    framework_.TakeCalls();
  }

  // An order for the top field, or the frame, of a sample that holds these framework samples.
  DecodeOrder Order(qel::SampleList samples) {
    sample_.SetContainer(fake::MakeContainer(std::move(samples)));
    DecodeOrder order;
    order.toDecode_ = &sample_;
    order.orderTp_ = At(100, 1, 50);
    order.decodeTopField_ = true;
    order.fieldSampleRate_ = SampleRate(50, 1);
    order.width_ = 1920;
    order.height_ = 1080;
    return order;
  }

  std::unique_ptr<ISample> Decode(const DecodeOrder& order) {
    return std::unique_ptr<ISample>(decoder_.Decode(order));
  }

  void ExpectNull(const DecodeOrder& order, ILogger::Level level, const std::string& text) {
    framework_.hostLog_.clear();
    EXPECT_EQ(Decode(order), nullptr);
    EXPECT_THAT(framework_.hostLog_, ElementsAre(LogLine{level, text, kDecoderFile}));
  }

  std::shared_ptr<fake::Decoder> element_ = std::make_shared<fake::Decoder>();
  QELSample sample_;
  QELSampleDecoder decoder_;
};

TEST_F(DecoderTest, AdapterPutsAnySampleOnTheDecodersStream) {
  QELSampleDecoder::AdapterForChangingStreamId adapter;
  const auto one = fake::MakeContainer({Encoded("other", {0})});
  fake::ExpectCheck(framework_, "[sample container] [ Pointer is null ]", kDecoderHeader,
                    [&] { adapter.ConvertSampleContainer(nullptr); });
  fake::ExpectCheck(framework_, "[_info] [ Pointer is null ]", kDecoderHeader,
                    [&] { adapter.ConvertSampleContainer(one); });
  adapter.Init(fake::MakeInfoContainer({fake::MakeInfo("first")}));
  adapter.Init(fake::MakeInfoContainer({fake::MakeInfo("second")}));
  fake::ExpectCheck(framework_, "[outputInfoContainer] [ Pointer is null ]", kDecoderHeader,
                    [&] { adapter.Init(nullptr); });
  fake::ExpectCheck(framework_, "[info] [ Pointer is null ]", kDecoderHeader,
                    [&] { adapter.Init(fake::MakeInfoContainer({nullptr})); });
  for (const qel::InfoList& infos :
       {qel::InfoList(), qel::InfoList(2, fake::MakeInfo("several"))}) {
    fake::ExpectCheck(framework_, "[infoList size must be 1] [ Condition is not true ]",
                      kDecoderHeader, [&] { adapter.Init(fake::MakeInfoContainer(infos)); });
  }
  for (const qel::SampleList& samples :
       {qel::SampleList(), qel::SampleList(2, Encoded("second", {0}))}) {
    fake::ExpectCheck(framework_, "[inputSamples size must be 1] [ Condition is not true ]",
                      kDecoderHeader,
                      [&] { adapter.ConvertSampleContainer(fake::MakeContainer(samples)); });
  }
  for (const char* streamId : {"other", "second"}) {
    const auto input = fake::MakeContainer({Encoded(streamId, {0})});
    const auto converted = adapter.ConvertSampleContainer(input);
    EXPECT_NE(converted, input);
    EXPECT_EQ(converted->GetAllSamples().front()->GetStreamId(), "second");
    EXPECT_EQ(input->GetAllSamples().front()->GetStreamId(), streamId);
  }
}

TEST_F(DecoderTest, InitBuildsTheElementForTheFirstVideoStream) {
  framework_.factory_ = std::make_shared<qel::ElementFactory<qel::ElementFactoryType_VideoDecoder>>(
      [](auto) { return std::make_shared<fake::Decoder>(); });
  const auto source = std::make_shared<fake::Source>();
  source->output_ = fake::MakeInfoContainer(
      {fake::MakeInfo("sound", false), fake::MakeInfo("video1"), fake::MakeInfo("video2")});
  QELDecoder built;
  QELSampleDecoder::InitJPEGDecoder(source, built, qel::FourCC_Y800);
  EXPECT_THAT(
      framework_.TakeCalls(),
      ElementsAre("GetInitConfigPrototype 9 qel video.mjpeg", "CreateParametersCollectionInstance",
                  "Set OutputFourCC=808466521", "GetDefinedOutput \"\"", "GetVideoInfoList",
                  "CreateMilestone ImplementElement label9.qel.video.mjpeg",
                  "GetFactory 9 qel video.mjpeg", "GetManifest 9 qel video.mjpeg", "CreateWrapper",
                  "SetInitConfig OutputFourCC=808466521", "CreateInfoContainer video1",
                  "DefineInput \"\""));
  const QELDecoder before = built;
  const auto init = [&] { QELSampleDecoder::InitJPEGDecoder(source, built, qel::FourCC_I420); };
  framework_.wrapperGivesElement_ = false;
  EXPECT_EQ(fake::ErrorOf(init), "[decoderElement] [ Pointer is null ]");
  source->output_ = fake::MakeInfoContainer({fake::MakeInfo("sound", false)});
  framework_.frameworkLog_.clear();
  EXPECT_EQ(fake::ErrorOf(init),
            "another exception: VideoInfoList is empty, cannot InitJPEGDecoder");
  EXPECT_THAT(framework_.frameworkLog_, IsEmpty());
  source->output_ = nullptr;
  fake::ExpectCheck(framework_, "[demuxerDefinedOutput] [ Pointer is null ]", kDecoderFile, init);
  framework_.initPrototype_ = false;
  fake::ExpectCheck(framework_,
                    "[GetInitConfigPrototype failed (VideoDecoder)] [ Pointer is null ]",
                    kDecoderFile, init);
  EXPECT_EQ(built, before);
}

TEST_F(DecoderTest, OnlyASuccessfulSetDecoderMakesItReady) {
  const DecodeOrder order = Order({Encoded("s", {0})});
  QELSampleDecoder fresh;
  fake::ExpectCheck(framework_, "[decoderElement] [ Pointer is null ]", kDecoderFile,
                    [&] { fresh.Decode(order); });
  fake::ExpectCheck(framework_, "[decoder] [ Pointer is null ]", kDecoderFile,
                    [&] { decoder_.SetDecoder({}); });
  EXPECT_TRUE(Decode(order)) << "unchanged";

  const auto undefined = std::make_shared<fake::Decoder>();
  fake::ExpectCheck(framework_, "[outputInfoContainer] [ Pointer is null ]", kDecoderHeader, [&] {
    decoder_.SetDecoder({undefined, undefined});
  });
  EXPECT_EQ(element_.use_count(), 1) << "replaced all the same";
  fake::ExpectCheck(framework_, "[decoder is ready] [ Condition is not true ]", kDecoderFile,
                    [&] { Decode(order); });
  decoder_.SetDecoder({element_, element_});
  EXPECT_TRUE(Decode(order));
}

TEST_F(DecoderTest, DecodesInOneExchange) {
  const DecodeOrder order = Order({Encoded("s", {0})});
  const std::unique_ptr<ISample> decoded = Decode(order);
  ASSERT_TRUE(decoded);
  EXPECT_THAT(framework_.TakeCalls(),
              ElementsAre("GetAllSamples", "CreateSampleContainer s", "CreateStreamIdToInfoMap",
                          "GetAllSamples", "AddInfo s->input", "DuplicateSampleContainer",
                          "GetAllSamples", "GetAllSamples", "PushSample input", "GetSample",
                          "GetSample", "GetVideoSampleList"));
  EXPECT_EQ(dynamic_cast<QELSample&>(*decoded).GetContainer(), element_->outputs_.front());
  EXPECT_EQ(decoded->GetTimePoint(), order.orderTp_);
  EXPECT_EQ(decoded->GetDuration(), At(1, 1, 25)) << "a frame lasts as long as the encoded sample";
  EXPECT_THAT(framework_.hostLog_, IsEmpty());
}

// Which of the samples "zero" (channel 0) and "one" (channel 1), stored bottom first, is pushed.
TEST_F(DecoderTest, PicksTheWantedField) {
  framework_.level_ = ILogger::Level_Trace;
  std::string pushed;
  element_->onPush_ = [&](const qel::ISample& sample) {
    pushed = std::to_string(sample.GetChannelInfo()->GetChannels().front());
  };
  const qel::SampleList fields = {nullptr, fake::MakeSample("hollow", {0}, nullptr),
                                  Encoded("one", {1}), Encoded("zero", {0}),
                                  Encoded("never looked at", {0, 1})};
  struct Case {
    bool top, interlaced;
    const char* pushed;
    uint64_t fieldNumber;
    const char* name;
  };
  for (const Case& c : {Case{true, true, "0", 100, "top"}, Case{false, true, "1", 101, "bottom"}}) {
    framework_.hostLog_.clear();
    DecodeOrder order = Order(fields);
    order.decodeTopField_ = c.top;
    order.isInterlace_ = c.interlaced;
    const auto decoded = Decode(order);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(pushed, c.pushed);
    EXPECT_EQ(decoded->GetTimePoint(), At(c.fieldNumber, 1, 50));
    EXPECT_EQ(decoded->GetDuration(), At(1, 1, 50));
    EXPECT_EQ(decoded->GetPropertyKeys().count("bottom"), c.top ? 0u : 1u);
    ASSERT_EQ(framework_.hostLog_.size(), 1u);
    EXPECT_THAT(framework_.hostLog_[0].text,
                testing::MatchesRegex(std::string("Decoded ") + c.name +
                                      " sample at 00:00:02.0[02]0000 of duration 0.020000 s in "
                                      "[0-9]+ ms"));
  }
}

TEST_F(DecoderTest, AnswersNullForWhatItCannotServe) {
  struct OtherSample : QELSample {};
  DecodeOrder order = Order({Encoded("zero", {0})});
  order.decodeTopField_ = false;
  ExpectNull(order, ILogger::Level_Warning, kNotFound);  // neither field is asked for
  order.isInterlace_ = true;
  ExpectNull(order, ILogger::Level_Warning, kNotFound);  // no bottom field
  ExpectNull(Order({}), ILogger::Level_Warning, kNotFound);
  order = Order({});
  sample_.SetContainer(nullptr);
  ExpectNull(order, ILogger::Level_Warning, kNotFound);
  order.toDecode_ = nullptr;
  ExpectNull(order, ILogger::Level_Warning, "Could not dynamic_cast encoded sample to QELSample*");

  for (const auto& outputs : {std::vector<qel::SampleContainerConstPtr>(),
                              {fake::MakeContainer({Encoded("no picture", {0})})}}) {
    element_->outputs_ = outputs;
    ExpectNull(Order({Encoded("zero", {0})}), ILogger::Level_Error,
               "VideoSampleList is empty after decoding");
  }
  for (const std::vector<int>& channels : {std::vector<int>{0, 1}, {}}) {
    fake::ExpectCheck(framework_,
                      "[Encoded sample must have 1 channel. It has " +
                          std::to_string(channels.size()) + "] [ Condition is not true ]",
                      kDecoderFile, [&] {
                        Decode(Order({Encoded("several", channels), Encoded("s", {0})}));
                      });
  }
}

TEST_F(DecoderTest, ASecondOutputIsDroppedWithAWarning) {
  const auto first = fake::MakeContainer({fake::MakePicture()});
  element_->outputs_ = {first, fake::MakeContainer({fake::MakePicture()})};
  const auto decoded = Decode(Order({Encoded("s", {0})}));
  ASSERT_TRUE(decoded);
  EXPECT_EQ(dynamic_cast<QELSample&>(*decoded).GetContainer(), first);
  EXPECT_THAT(
      framework_.hostLog_,
      ElementsAre(LogLine{ILogger::Level_Warning, "GetSample should return NULL on the second call",
                          kDecoderFile}));
}

TEST_F(DecoderTest, DispatchesByExactResolution) {
  const DecodeOrder order = Order({Encoded("s", {0})});
  QELMultiResDecoder dispatcher;
  QELSampleDecoder other;
  dispatcher.AddDecoder(1920, 1088, &decoder_);
  dispatcher.AddDecoder(1280, 1080, &decoder_);
  const auto decode = [&](const DecodeOrder& o) {
    return std::unique_ptr<ISample>(dispatcher.Decode(o)) != nullptr;
  };
  const auto miss = [](const std::string& time) {
    return LogLine{
        ILogger::Level_Warning,
        "Could not find an QEL decoder for sample at " + time + " with resolution 1920x1080",
        "Player/QELMultiResDecoder.cpp"};
  };
  EXPECT_FALSE(decode(order));
  DecodeOrder orderWithout = order;
  orderWithout.toDecode_ = nullptr;
  EXPECT_FALSE(decode(orderWithout));
  EXPECT_THAT(framework_.hostLog_, ElementsAre(miss("00:00:00.000000"), miss("unknown time")));
  framework_.level_ = ILogger::Level_Error;
  EXPECT_FALSE(decode(order));
  EXPECT_EQ(framework_.hostLog_.size(), 2u);

  framework_.level_ = ILogger::Level_Warning;
  dispatcher.AddDecoder(1920, 1080, nullptr);
  EXPECT_EQ(framework_.hostLog_.back().level, ILogger::Level_Warning);
  dispatcher.AddDecoder(1920, 1080, &decoder_);
  dispatcher.AddDecoder(1920, 1080, &other);
  EXPECT_TRUE(decode(order)) << "the first registration stays";
  dispatcher.RemoveDecoder(1920, 1080);
  dispatcher.RemoveDecoder(1920, 1080);
  dispatcher.AddDecoder(1920, 1080, &other);
  EXPECT_THROW(decode(order), qel::QELRuntimeError) << "the other decoder is not ready";
  dispatcher.RemoveDecoder(1920, 1080);
  dispatcher.AddDecoder(1920, 1080, &decoder_);
  EXPECT_TRUE(decode(order)) << "an exception has left no lock behind";
}

// Two exchanges with one element never interleave, though the orders overlap.
TEST_F(DecoderTest, ExchangesOfOneDecoderTakeTurns) {
  std::atomic<int> inside = 0;
  std::atomic<int> overlaps = 0;
  element_->onPush_ = [&](const qel::ISample&) {
    overlaps += inside++ != 0;
    std::this_thread::yield();
    --inside;
  };
  const DecodeOrder order = Order({Encoded("s", {0})});
  {
    std::vector<std::jthread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 300; ++i)
          EXPECT_TRUE(Decode(order));
      });
    }
  }
  EXPECT_EQ(overlaps, 0);
  EXPECT_THAT(framework_.hostLog_, IsEmpty()) << "no exchange saw another's picture";
}

// Decodes at several resolutions run at once; a removal waits for the decode that uses the decoder
// and is not starved by a stream of others.
TEST_F(DecoderTest, RegistrationWaitsForDecodesAndIsNotStarved) {
  constexpr std::chrono::seconds kHung(20);
  const auto fastElement = std::make_shared<fake::Decoder>();
  fastElement->input_ = element_->input_;
  fastElement->outputs_ = element_->outputs_;
  QELSampleDecoder fast;
  fast.SetDecoder({fastElement, fastElement});
  QELMultiResDecoder dispatcher;
  dispatcher.AddDecoder(1920, 1080, &decoder_);
  dispatcher.AddDecoder(0, -1, &fast);
  const DecodeOrder order = Order({Encoded("s", {0})});
  DecodeOrder small = order;
  small.width_ = 0;
  small.height_ = -1;
  const auto decode = [&dispatcher](const DecodeOrder& o) {
    return std::unique_ptr<ISample>(dispatcher.Decode(o)) != nullptr;
  };

  std::promise<void> entered;
  std::promise<void> release;
  std::atomic<bool> decoding = false;
  element_->onPush_ = [&](const qel::ISample&) {
    decoding = true;
    entered.set_value();
    release.get_future().wait();
    decoding = false;
  };
  std::jthread slow([&] { EXPECT_TRUE(decode(order)); });
  entered.get_future().wait();
  auto beside = std::async(std::launch::async, [&] { return decode(small); });
  EXPECT_EQ(beside.wait_for(kHung), std::future_status::ready) << "decodes exclude each other";

  std::atomic<bool> stop = false;
  std::vector<std::jthread> stream;
  for (int t = 0; t < 2; ++t) {
    stream.emplace_back([&] {
      while (!stop)
        decode(small);
    });
  }
  auto removal = std::async(std::launch::async, [&] {
    dispatcher.RemoveDecoder(1920, 1080);
    EXPECT_FALSE(decoding) << "the decoder is still in use";
  });
  EXPECT_EQ(removal.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
  release.set_value();
  EXPECT_EQ(removal.wait_for(kHung), std::future_status::ready) << "the removal is starved";
  stop = true;
}

}  // namespace Moravel::Player
