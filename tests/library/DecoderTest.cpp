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
using fake::MakeContainer;
using fake::MakeInfoContainer;
using fake::MakeSample;
using fake::MakeVideoInfo;
using orl::mv::logging::ILogger;
using testing::ElementsAre;
using testing::IsEmpty;

const char* const kDecoderHeader = "Player/QELSampleDecoder.h";
const char* const kDecoderFile = "Player/QELSampleDecoder.cpp";
const char* const kNotFound =
    "Could not find sample with valid channel in sample container: cannot decode";

class DecoderTest : public fake::LibraryTest {
 protected:
  DecoderTest() {
    element_->input_ = MakeInfoContainer({MakeVideoInfo("input")});
    element_->outputs_ = {MakeContainer({fake::MakePicture()})};
    decoder_.SetDecoder({element_, element_});
    sample_.SetDuration(At(1, 1, 25));
    framework_.TakeCalls();
  }

  // An order for the top field, or the frame, of a sample that holds these framework samples.
  DecodeOrder Order(qel::SampleList samples) {
    sample_.SetContainer(MakeContainer(std::move(samples)));
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
  const auto convert = [&](qel::SampleContainerConstPtr container) {
    return [&adapter, container] { adapter.ConvertSampleContainer(container); };
  };
  const auto init = [&](qel::InfoContainerConstPtr infos) {
    return [&adapter, infos] { adapter.Init(infos); };
  };
  const auto expectCheck = [&](const std::string& text, const auto& act) {
    fake::ExpectCheck(framework_, text, kDecoderHeader, act);
  };
  const auto two = qel::SampleList(2, MakeSample("second", {0}));
  expectCheck("[_info] [ Pointer is null ]", convert(MakeContainer({two.front()})));
  init(MakeInfoContainer({MakeVideoInfo("first")}))();
  init(MakeInfoContainer({MakeVideoInfo("second")}))();
  const std::string infos = "[infoList size must be 1] [ Condition is not true ]";
  const std::string samples = "[inputSamples size must be 1] [ Condition is not true ]";
  expectCheck("[sample container] [ Pointer is null ]", convert(nullptr));
  expectCheck("[outputInfoContainer] [ Pointer is null ]", init(nullptr));
  expectCheck("[info] [ Pointer is null ]", init(MakeInfoContainer({nullptr})));
  expectCheck(infos, init(MakeInfoContainer({})));
  expectCheck(infos, init(MakeInfoContainer(qel::InfoList(2, MakeVideoInfo("several")))));
  expectCheck(samples, convert(MakeContainer({})));
  expectCheck(samples, convert(MakeContainer(two)));
  for (const char* streamId : {"other", "second"}) {
    const auto input = MakeContainer({MakeSample(streamId, {0})});
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
  source->output_ = MakeInfoContainer(
      {fake::MakeSoundInfo("sound"), MakeVideoInfo("video1"), MakeVideoInfo("video2")});
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
  framework_.missing_ = "CreateWrapper";
  EXPECT_EQ(fake::ErrorOf(init), "[decoderElement] [ Pointer is null ]");
  source->output_ = MakeInfoContainer({fake::MakeSoundInfo("sound")});
  framework_.frameworkLog_.clear();
  EXPECT_EQ(fake::ErrorOf(init),
            "another exception: VideoInfoList is empty, cannot InitJPEGDecoder");
  EXPECT_THAT(framework_.frameworkLog_, IsEmpty());
  source->output_ = nullptr;
  fake::ExpectCheck(framework_, "[demuxerDefinedOutput] [ Pointer is null ]", kDecoderFile, init);
  framework_.missing_ = "GetInitConfigPrototype";
  fake::ExpectCheck(framework_,
                    "[GetInitConfigPrototype failed (VideoDecoder)] [ Pointer is null ]",
                    kDecoderFile, init);
  EXPECT_EQ(built, before);
}

TEST_F(DecoderTest, OnlyASuccessfulSetDecoderMakesItReady) {
  const DecodeOrder order = Order({MakeSample("s", {0})});
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
  const DecodeOrder order = Order({MakeSample("s", {0})});
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

  const auto first = MakeContainer({fake::MakePicture()});
  element_->outputs_ = {first, MakeContainer({fake::MakePicture()})};
  EXPECT_EQ(dynamic_cast<QELSample&>(*Decode(order)).GetContainer(), first);
  const LogLine second = {ILogger::Level_Warning, "GetSample should return NULL on the second call",
                          kDecoderFile};
  EXPECT_THAT(framework_.hostLog_, ElementsAre(second));
}

// Which of the samples "zero" (channel 0) and "one" (channel 1), stored bottom first, is pushed.
TEST_F(DecoderTest, PicksTheWantedField) {
  framework_.level_ = ILogger::Level_Trace;
  std::string pushed;
  element_->onPush_ = [&](const qel::ISample& sample) {
    pushed = std::to_string(sample.GetChannelInfo()->GetChannels().front());
  };
  const qel::SampleList fields = {nullptr, MakeSample("hollow", {0}, nullptr),
                                  MakeSample("one", {1}), MakeSample("zero", {0}),
                                  MakeSample("never looked at", {0, 1})};
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
  DecodeOrder order = Order({MakeSample("zero", {0})});
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
                              {MakeContainer({MakeSample("no picture", {0})})}}) {
    element_->outputs_ = outputs;
    ExpectNull(Order({MakeSample("zero", {0})}), ILogger::Level_Error,
               "VideoSampleList is empty after decoding");
  }
  for (const std::vector<int>& channels : {std::vector<int>{0, 1}, {}}) {
    fake::ExpectCheck(framework_,
                      "[Encoded sample must have 1 channel. It has " +
                          std::to_string(channels.size()) + "] [ Condition is not true ]",
                      kDecoderFile, [&] {
                        Decode(Order({MakeSample("several", channels), MakeSample("s", {0})}));
                      });
  }
}

TEST_F(DecoderTest, DispatchesByExactResolution) {
  DecodeOrder order = Order({MakeSample("s", {0})});
  QELMultiResDecoder dispatcher;
  QELSampleDecoder notReady;
  dispatcher.AddDecoder(1920, 1088, &decoder_);
  dispatcher.AddDecoder(1280, 1080, &decoder_);
  const auto decode = [&] { return std::unique_ptr<ISample>(dispatcher.Decode(order)) != nullptr; };
  const auto add = [&](QELSampleDecoder* decoder) { dispatcher.AddDecoder(1920, 1080, decoder); };
  const auto line = [](const std::string& text) {
    return LogLine{ILogger::Level_Warning, text, "Player/QELMultiResDecoder.cpp"};
  };
  const std::string miss = "Could not find an QEL decoder for sample at ";
  EXPECT_FALSE(decode());
  order.toDecode_ = nullptr;
  EXPECT_FALSE(decode());
  add(nullptr);
  framework_.level_ = ILogger::Level_Error;
  EXPECT_FALSE(decode());
  EXPECT_THAT(framework_.hostLog_,
              ElementsAre(line(miss + "00:00:00.000000 with resolution 1920x1080"),
                          line(miss + "unknown time with resolution 1920x1080"),
                          line("AddDecoder: ignored a null decoder for resolution 1920x1080")));

  order.toDecode_ = &sample_;
  add(&decoder_);
  add(&notReady);
  EXPECT_TRUE(decode()) << "the first registration stays";
  dispatcher.RemoveDecoder(1920, 1080);
  dispatcher.RemoveDecoder(1920, 1080);
  add(&notReady);
  EXPECT_THROW(decode(), qel::QELRuntimeError);
  dispatcher.RemoveDecoder(1920, 1080);
  add(&decoder_);
  EXPECT_TRUE(decode()) << "an exception has left no lock behind";
}

// Two exchanges with one element never interleave, though the orders overlap.
TEST_F(DecoderTest, ExchangesOfOneDecoderTakeTurns) {
  fake::Turns turns;
  element_->onPush_ = [&](const qel::ISample&) { turns.Take(); };
  const DecodeOrder order = Order({MakeSample("s", {0})});
  fake::RunInThreads(4, 300, [&](int, int) { EXPECT_TRUE(Decode(order)); });
  EXPECT_EQ(turns.overlaps, 0);
  EXPECT_THAT(framework_.hostLog_, IsEmpty()) << "no exchange saw another's picture";
}

// Decodes at several resolutions run at once; a removal waits for the decode that uses the decoder
// and is not starved by a stream of others.
TEST_F(DecoderTest, RegistrationWaitsForDecodesAndIsNotStarved) {
  constexpr std::chrono::seconds kHung(20);
  const auto fastElement = std::make_shared<fake::Decoder>(*element_);
  QELSampleDecoder fast;
  fast.SetDecoder({fastElement, fastElement});
  QELMultiResDecoder dispatcher;
  dispatcher.AddDecoder(1920, 1080, &decoder_);
  dispatcher.AddDecoder(0, -1, &fast);
  const DecodeOrder large = Order({MakeSample("s", {0})});
  DecodeOrder small = large;
  small.width_ = 0;
  small.height_ = -1;
  const auto decode = [&dispatcher](const DecodeOrder& order) {
    return std::unique_ptr<ISample>(dispatcher.Decode(order)) != nullptr;
  };

  std::promise<void> entered, release;
  std::atomic<bool> decoding = true, stop = false;
  element_->onPush_ = [&](const qel::ISample&) {
    entered.set_value();
    release.get_future().wait();
    decoding = false;
  };
  std::vector<std::jthread> threads;
  threads.emplace_back([&] { EXPECT_TRUE(decode(large)); });
  entered.get_future().wait();
  auto beside = std::async(std::launch::async, [&] { return decode(small); });
  EXPECT_EQ(beside.wait_for(kHung), std::future_status::ready) << "decodes exclude each other";

  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&] {
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
