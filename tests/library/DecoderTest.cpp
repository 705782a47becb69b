#include <atomic>
#include <chrono>
#include <future>

#include "Framework.h"
#include "Player/QELMultiResDecoder.h"
#include "Player/QELSampleDecoder.h"

namespace Moravel::Test {

using namespace Player;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

const char* const kNotFound =
    "Could not find sample with valid channel in sample container: cannot decode";

qel::SampleContainerConstPtr Picture() {
  return qel::CreateSampleContainer(
      qel::CreateVideoSample(Info("decoded"), nullptr, Buffer(1), 4, 3, qel::FourCC_I420), nullptr);
}

class DecoderTest : public LibraryTest {
 protected:
  DecoderTest() {
    element_->outputs_ = {Picture()};
    decoder_.SetDecoder({element_, element_});
    sample_.SetDuration(At(1, 1, 25));
    TakeCalls();
  }

  // An order for the top field, or the frame, of a sample that holds these framework samples.
  DecodeOrder Order(qel::SampleList samples = {Sample("s", 0)}) {
    sample_.SetContainer(Read(std::move(samples)));
    DecodeOrder order;
    order.toDecode_ = &sample_;
    order.orderTp_ = At(100, 1, 50);
    order.decodeTopField_ = true;
    order.fieldSampleRate_ = SampleRate(50, 1);
    order.width_ = 1920;
    order.height_ = 1080;
    return order;
  }
  static std::unique_ptr<QELSample> Decode(ISampleDecoder& decoder, const DecodeOrder& order) {
    return std::unique_ptr<QELSample>(dynamic_cast<QELSample*>(decoder.Decode(order)));
  }
  std::unique_ptr<QELSample> Decode(const DecodeOrder& order) { return Decode(decoder_, order); }

  std::shared_ptr<Decoder> element_ = std::make_shared<Decoder>();
  QELSample sample_;
  QELSampleDecoder decoder_;
};

TEST_F(DecoderTest, AdapterPutsOneSampleOnTheDecodersStream) {
  QELSampleDecoder::AdapterForChangingStreamId adapter;
  const auto one = Sample("other", 0);
  const auto picture = Picture()->GetAllSamples().front();
  adapter.Init(qel::CreateInfoContainer(Info("mine"), nullptr));
  for (const qel::InfoList& infos : {qel::InfoList(), {nullptr}, {Info("a"), Info("b")}})
    EXPECT_THROW(adapter.Init(qel::CreateInfoContainer(infos)), qel::QELRuntimeError);
  for (const qel::SampleList& samples : {qel::SampleList(), {one, one}})
    ExpectCheck("[inputSamples size must be 1] [ Condition is not true ]",
                [&] { adapter.ConvertSampleContainer(Read(samples)); });
  for (const qel::SampleConstPtr& sample : {one, picture}) {
    const auto converted = adapter.ConvertSampleContainer(Read({sample}))->GetAllSamples();
    EXPECT_EQ(converted.front()->GetInfo()->GetStreamId(), "mine");
    EXPECT_EQ(converted.front()->GetData(), sample->GetData());
    EXPECT_EQ(converted.front()->GetChannelInfo(), sample->GetChannelInfo());
  }
}

TEST_F(DecoderTest, InitBuildsTheElementForTheFirstVideoStream) {
  struct SoundInfo : qel::IInfo {
    const std::string& GetStreamId() const override { return streamId_; }
    std::string streamId_ = "sound";
  };
  const auto sound = std::make_shared<SoundInfo>();
  Register(element_);
  const auto source = std::make_shared<Source>();
  source->output_ = qel::CreateInfoContainer({sound, Info("video1"), Info("video2")});
  QELDecoder built;
  const auto init = [&] { QELSampleDecoder::InitJPEGDecoder(source, built, qel::FourCC_Y800); };
  init();
  EXPECT_EQ(built, QELDecoder(element_, element_));
  EXPECT_THAT(TakeCalls(),
              ElementsAre("GetDefinedOutput", "SetInitConfig 808466521", "DefineInput video1"));
  source->output_ = qel::CreateInfoContainer(sound, nullptr);
  EXPECT_EQ(ErrorOf(init), "std VideoInfoList is empty, cannot InitJPEGDecoder");
  EXPECT_EQ(built, QELDecoder(element_, element_));
}

TEST_F(DecoderTest, OnlyASuccessfulSetDecoderMakesItReady) {
  const DecodeOrder order = Order();
  QELSampleDecoder fresh;
  ExpectCheck("[decoderElement] [ Pointer is null ]", [&] { fresh.Decode(order); });
  ExpectCheck("[decoder] [ Pointer is null ]", [&] { decoder_.SetDecoder({}); });
  EXPECT_TRUE(Decode(order)) << "unchanged";
  const auto undefined = std::make_shared<Decoder>();
  undefined->input_ = nullptr;
  ExpectCheck("[outputInfoContainer] [ Pointer is null ]", [&] {
    decoder_.SetDecoder({undefined, undefined});
  });
  ExpectCheck("[decoder is ready] [ Condition is not true ]", [&] { Decode(order); });
  decoder_.SetDecoder({element_, element_});
  EXPECT_TRUE(Decode(order));
}

// Of the samples "zero" and "one", stored bottom first, the wanted one in one exchange.
TEST_F(DecoderTest, DecodesTheFrameOrTheWantedField) {
  struct Case {
    bool top, interlaced;
    const char* pushed;
    uint64_t time, period;
    const char* name;
  };
  level_ = ILogger::Level_Trace;
  int channel = -1;
  element_->onPush_ = [&](const qel::ISample& sample) {
    channel = sample.GetChannelInfo()->GetChannels().front();
  };
  for (const Case& c : {Case{true, false, "top", 100, 25, "0.040000"},
                        {true, true, "top", 100, 50, "0.020000"},
                        {false, true, "bottom", 101, 50, "0.020000"}}) {
    DecodeOrder order =
        Order({nullptr, Sample("hollow", 0, nullptr), Sample("one", 1), Sample("zero", 0)});
    order.decodeTopField_ = c.top;
    order.isInterlace_ = c.interlaced;
    hostLog_.clear();
    TakeCalls();
    const auto decoded = Decode(order);
    ASSERT_TRUE(decoded);
    EXPECT_THAT(TakeCalls(), ElementsAre("PushSample input", "GetSample", "GetSample", "Log"));
    EXPECT_EQ(channel, c.top ? 0 : 1);
    EXPECT_EQ(decoded->GetContainer(), element_->outputs_.front());
    EXPECT_EQ(decoded->GetTimePoint(), At(c.time, 1, 50));
    EXPECT_EQ(decoded->GetDuration(), At(1, 1, c.period));
    EXPECT_EQ(decoded->GetPropertyKeys().count("bottom"), c.top ? 0u : 1u);
    EXPECT_THAT(hostLog_.at(0).second,
                testing::MatchesRegex("Decoded " + std::string(c.pushed) +
                                      " sample at 00:00:02.0[02]0000 of duration " + c.name +
                                      " s in [0-9]+ ms"));
  }
}

TEST_F(DecoderTest, AnswersNullOrThrowsForWhatItCannotServe) {
  const auto expectNull = [&](const DecodeOrder& order, int level, const std::string& text) {
    hostLog_.clear();
    EXPECT_EQ(Decode(order), nullptr);
    EXPECT_THAT(hostLog_, ElementsAre(Pair(level, text)));
  };
  DecodeOrder order = Order({Sample("s", 0), Sample("t", 1)});
  order.decodeTopField_ = false;
  expectNull(order, 40, kNotFound);  // a frame has no bottom field
  order.isInterlace_ = true;
  EXPECT_TRUE(Decode(order));
  sample_.SetContainer(Read({Sample("s", 0)}));
  expectNull(order, 40, kNotFound);  // no bottom field
  expectNull(Order({}), 40, kNotFound);
  sample_.SetContainer(nullptr);
  expectNull(order, 40, kNotFound);
  order.toDecode_ = nullptr;
  expectNull(order, 40, "Could not dynamic_cast encoded sample to QELSample*");
  for (const auto& outputs :
       {std::vector<qel::SampleContainerConstPtr>(), {Read({Sample("", 0)})}}) {
    element_->outputs_ = outputs;
    expectNull(Order(), 50, "VideoSampleList is empty after decoding");
  }
  element_->outputs_ = {Picture(), Picture()};
  EXPECT_TRUE(Decode(Order()));
  EXPECT_THAT(hostLog_.back(), Pair(40, "GetSample should return NULL on the second call"));

  struct Channels : qel::IChannelInfo {
    const qel::ChannelsList& GetChannels() const override { return list_; }
    qel::ChannelsList list_ = {0, 1};
  };
  const auto several = qel::CreateSample(Info("s"), std::make_shared<Channels>(), Buffer(1));
  ExpectCheck("[Encoded sample must have 1 channel. It has 2] [ Condition is not true ]", [&] {
    Decode(Order({several, Sample("s", 0)}));
  });
}

TEST_F(DecoderTest, DispatchesByExactResolution) {
  const DecodeOrder order = Order();
  QELMultiResDecoder dispatcher;
  QELSampleDecoder notReady;
  dispatcher.AddDecoder(1920, 1088, &decoder_);
  dispatcher.AddDecoder(1280, 1080, &decoder_);
  dispatcher.AddDecoder(1920, 1080, nullptr);
  EXPECT_FALSE(Decode(dispatcher, order));
  EXPECT_THAT(hostLog_,
              ElementsAre(Pair(40, "AddDecoder: ignored a null decoder for resolution 1920x1080"),
                          Pair(40,
                               "Could not find an QEL decoder for sample at 00:00:00.000000 with "
                               "resolution 1920x1080")));
  dispatcher.AddDecoder(1920, 1080, &decoder_);
  dispatcher.AddDecoder(1920, 1080, &notReady);
  EXPECT_TRUE(Decode(dispatcher, order)) << "the first registration stays";
  dispatcher.RemoveDecoder(1920, 1080);
  EXPECT_FALSE(Decode(dispatcher, order));
}

// Exchanges with one element take turns; decodes with several run side by side; a removal waits for
// the decode that uses the decoder.
TEST_F(DecoderTest, WhatWaitsAndWhatDoesNot) {
  constexpr std::chrono::milliseconds kMoment(20), kHung(20'000);
  const auto fastElement = std::make_shared<Decoder>(*element_);
  QELSampleDecoder fast;
  fast.SetDecoder({fastElement, fastElement});
  QELMultiResDecoder dispatcher;
  dispatcher.AddDecoder(1920, 1080, &decoder_);
  dispatcher.AddDecoder(0, -1, &fast);
  const DecodeOrder large = Order();
  DecodeOrder small = large;
  small.width_ = 0;
  small.height_ = -1;
  const auto start = [](auto act) { return std::async(std::launch::async, act); };

  std::promise<void> entered, release;
  std::atomic<int> pushes = 0, inside = 0;
  element_->onPush_ = [&](const qel::ISample&) {
    EXPECT_EQ(++inside, 1);
    if (++pushes == 1) {
      entered.set_value();
      release.get_future().wait();
    }
    --inside;
  };
  auto first = start([&] { EXPECT_TRUE(Decode(dispatcher, large)); });
  entered.get_future().wait();
  auto second = start([&] { EXPECT_TRUE(Decode(large)); });
  EXPECT_EQ(second.wait_for(kMoment), std::future_status::timeout);
  EXPECT_EQ(pushes, 1);
  auto beside = start([&] { EXPECT_TRUE(Decode(dispatcher, small)); });
  EXPECT_EQ(beside.wait_for(kHung), std::future_status::ready) << "decodes exclude each other";

  auto removal = start([&] { dispatcher.RemoveDecoder(1920, 1080); });
  EXPECT_EQ(removal.wait_for(kMoment), std::future_status::timeout) << "it is still in use";
  release.set_value();
}

// Decodes of some milliseconds in more threads than there are cores: one at least always runs.
TEST_F(DecoderTest, RegistrationsAreNotStarvedByDecodesThatAlwaysOverlap) {
  constexpr int kThreads = 6, kChanges = 10;
  constexpr std::chrono::milliseconds kDecode(4), kBound(kChanges * 500);
  QELMultiResDecoder dispatcher;
  QELSampleDecoder decoders[kThreads];
  const DecodeOrder order = Order();
  std::atomic<bool> stop = false;
  std::atomic<int> decoded = 0;
  std::vector<std::jthread> stream;
  for (int thread = 0; thread < kThreads; ++thread) {
    const auto element = std::make_shared<Decoder>(*element_);
    element->onPush_ = [&](const qel::ISample&) { std::this_thread::sleep_for(kDecode); };
    decoders[thread].SetDecoder({element, element});
    dispatcher.AddDecoder(thread, 0, &decoders[thread]);
    stream.emplace_back([&, thread] {
      DecodeOrder own = order;
      own.width_ = thread;
      own.height_ = 0;
      for (; !stop; ++decoded)
        EXPECT_TRUE(Decode(dispatcher, own));
    });
  }
  while (decoded < kThreads)
    std::this_thread::yield();
  const auto changes = std::async(std::launch::async, [&] {
    for (int change = 0; change < kChanges / 2; ++change) {
      dispatcher.AddDecoder(1, 1, &decoder_);
      dispatcher.RemoveDecoder(1, 1);
    }
  });
  EXPECT_EQ(changes.wait_for(kBound), std::future_status::ready) << "they are starved";
  stop = true;
}

// A host whose logger decodes gets its picture, and a container is dropped after its line.
TEST_F(DecoderTest, LogsOutsideTheExchange) {
  const DecodeOrder order = Order();
  element_->outputs_ = {Picture(), Picture()};
  onLog_ = [&, nested = false]() mutable {
    if (std::exchange(nested, true))
      return;
    EXPECT_EQ(element_->outputs_[1].use_count(), 2);
    EXPECT_TRUE(Decode(order));
  };
  EXPECT_TRUE(Decode(order));
  EXPECT_EQ(hostLog_.size(), 2u);
}

// Whatever fails, and wherever.
TEST_F(DecoderTest, FailuresLeaveNothingBehind) {
  Register(element_);
  const auto source = std::make_shared<Source>();
  source->output_ = qel::CreateInfoContainer(Info("video"), nullptr);
  QELDecoder built;
  FailEach(
      [&] {
        built = {};
        QELSampleDecoder::InitJPEGDecoder(source, built, qel::FourCC_I420);
      },
      [&](bool thrown) { EXPECT_EQ(built == QELDecoder(), thrown); });

  level_ = ILogger::Level_Trace;
  const DecodeOrder order = Order();
  QELMultiResDecoder dispatcher;
  dispatcher.AddDecoder(1920, 1080, &decoder_);
  FailEach([&] { decoder_.SetDecoder(built); },
           [&](bool thrown) {
             EXPECT_EQ(ErrorOf([&] { Decode(dispatcher, order); }) != "no exception", thrown);
           });
  FailEach([&] { EXPECT_TRUE(Decode(dispatcher, order)); },
           [&](bool) {
             dispatcher.RemoveDecoder(1920, 1080);  // the lock is free
             dispatcher.AddDecoder(1920, 1080, &decoder_);
           });
  EXPECT_EQ(element_->outputs_.front().use_count(), 1) << "every result has been destroyed";
}

}  // namespace Moravel::Test
