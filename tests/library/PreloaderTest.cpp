#include "Player/QELPreloader.h"

#include <chrono>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "LibraryTest.h"

namespace Moravel::Player {

using fake::At;
using fake::LogLine;
using orl::mv::logging::ILogger;
using testing::ElementsAre;
using testing::IsEmpty;
using Result = IPreloader::PreloadResult;

const char* const kPreloaderFile = "Player/QELPreloader.cpp";
const StorageId kStorage("server", 8080);
const TrackId kOrderedTrack(kStorage, 12);

qel::SampleContainerConstPtr OneSample() {
  return fake::MakeContainer(
      {fake::MakeSample("s", {0}), fake::MakeSample("t", {1}, fake::MakeBuffer(0))},
      qel::TimeLimits(qel::MediaTime(qel::EditRate(30000, 1001), 50, nullptr), 2));
}

class PreloaderTest : public fake::LibraryTest {
 protected:
  PreloaderTest() {
    preloader_ = std::make_unique<QELPreloader>();
    source_->read_ = OneSample;
    preloader_->SetStorageSource(kStorage, source_, source_);
    framework_.TakeCalls();
  }

  // The order's time is that of sample 100 at 25/1.
  PreloadOrder Order() { return {At(100, 1, 25), SampleRate(25, 1), &queue_, kOrderedTrack}; }

  void ExpectRefused(const PreloadOrder& order, ILogger::Level level, const std::string& text) {
    framework_.hostLog_.clear();
    EXPECT_EQ(preloader_->Preload(order), Result::ERROR);
    EXPECT_THAT(framework_.hostLog_, ElementsAre(LogLine{level, text, kPreloaderFile}));
    EXPECT_THAT(queue_.outputs_, IsEmpty());
  }

  std::shared_ptr<fake::Source> source_ = std::make_shared<fake::Source>();
  fake::Queue queue_;
  fake::Queues queues_;
  std::unique_ptr<QELPreloader> preloader_;
};

TEST_F(PreloaderTest, ServesAnOrderInFixedSteps) {
  preloader_->SetExistingCacheUpdateQueues(&queues_);
  EXPECT_EQ(preloader_->Preload(Order()), Result::SUCCESS_EXIST);
  EXPECT_THAT(framework_.TakeCalls(),
              ElementsAre("Exists", "Set track_id=12", "UpdateConfig track_id=12",
                          "GotoTimeOffset 100@25/1 source", "GetSample", "GetAllSamples",
                          "GetTimeInfo StorageTimePoint", "PushIfExists", "Push"));
  ASSERT_EQ(queue_.outputs_.size(), 1u);
  EXPECT_EQ(queue_.outputs_[0].tp_, At(100, 1, 25));
  const ISample& sample = *queue_.outputs_[0].sample_;
  EXPECT_EQ(sample.GetTimePoint(), At(50, 1001, 30000));
  EXPECT_EQ(sample.GetDuration(), At(2, 1001, 30000));
  EXPECT_EQ(sample.GetDataKeys(), (std::set<std::string>{"s", "t"}));
  EXPECT_THAT(framework_.hostLog_, IsEmpty()) << "a success at Debug builds no text";

  preloader_->SetExistingCacheUpdateQueues(nullptr);
  framework_.hasLogger_ = false;
  EXPECT_EQ(QELPreloader().Preload(Order()), Result::ERROR) << "without a logger too";
  EXPECT_EQ(preloader_->Preload(Order()), Result::SUCCESS_EXIST);
}

TEST_F(PreloaderTest, TracesTheSeekWithTheRateCutTo32Bits) {
  framework_.level_ = ILogger::Level_Trace;
  source_->read_ = nullptr;
  PreloadOrder order = Order();
  order.s_ = SampleRate((int64_t{1} << 32) * 25 + 25, (int64_t{1} << 32) + 1);
  EXPECT_EQ(preloader_->Preload(order), Result::SUCCESS_MISSING);
  EXPECT_THAT(framework_.hostLog_,
              ElementsAre(LogLine{ILogger::Level_Trace,
                                  fake::Identity(preloader_.get()) +
                                      ": GetSample at mediaTime: 100 x (25, 1), obtained from tp "
                                      "00:00:04.000000",
                                  kPreloaderFile},
                          LogLine{ILogger::Level_Trace, "Invalid sample at 00:00:04.000000",
                                  kPreloaderFile}));
}

TEST_F(PreloaderTest, RefusesWhatItCannotServe) {
  const std::string self = fake::Identity(preloader_.get());
  PreloadOrder order = Order();
  order.queue_ = nullptr;
  queues_.exists_ = false;
  preloader_->SetExistingCacheUpdateQueues(&queues_);
  ExpectRefused(order, ILogger::Level_Error, self + ": received an order with empty queue");
  EXPECT_THAT(framework_.TakeCalls(), ElementsAre("Log")) << "the registry is not asked";
  ExpectRefused(Order(), ILogger::Level_Debug,
                "It appears the queue is not valid anymore: we don't process the order on "
                "server:8080:T12 at 00:00:04.000000");
  preloader_->SetExistingCacheUpdateQueues(nullptr);
  order = Order();
  order.id_ = TrackId(StorageId("server", 8081), 12);
  ExpectRefused(order, ILogger::Level_Error,
                self + ": does not have a source set to read on storage server:8081");

  framework_.TakeCalls();
  framework_.failAt_ = 1;
  framework_.failure_ = [](const std::string&) { throw qel::QELRuntimeError("no such track"); };
  ExpectRefused(Order(), ILogger::Level_Error, "Preload: UpdateConfig error: no such track");

  framework_.failAt_ = -1;
  framework_.missing_ = "GetUpdateConfigPrototype";
  preloader_ = std::make_unique<QELPreloader>();
  preloader_->SetStorageSource(kStorage, source_, source_);
  EXPECT_THAT(framework_.frameworkLog_, IsEmpty());
  ExpectRefused(Order(), ILogger::Level_Error,
                "Preload: UpdateConfig error: the framework has no update configuration for "
                "qel.StorageSource");
}

TEST_F(PreloaderTest, AReadIsAsGoodAsItsFirstSample) {
  const auto full = fake::MakeSample("full", {0});
  const auto empty = fake::MakeSample("empty", {0}, fake::MakeBuffer(0, "x"));
  const auto none = fake::MakeSample("none", {0}, nullptr);
  qel::SampleContainerConstPtr container;
  source_->read_ = [&] { return container; };
  for (const qel::SampleList& samples :
       {qel::SampleList{}, {empty, full}, {nullptr, full}, {none, full}}) {
    EXPECT_EQ(preloader_->Preload(Order()), Result::SUCCESS_MISSING);
    EXPECT_EQ(queue_.outputs_.back().sample_, nullptr);
    EXPECT_EQ(queue_.outputs_.back().tp_, At(100, 1, 25));
    container = fake::MakeContainer(samples);
  }
  EXPECT_EQ(preloader_->Preload(Order()), Result::SUCCESS_MISSING);
  EXPECT_EQ(queue_.outputs_.size(), 5u);
}

TEST_F(PreloaderTest, DestroysTheSampleThatNobodyTakes) {
  queues_.takes_ = false;
  preloader_->SetExistingCacheUpdateQueues(&queues_);
  std::weak_ptr<const qel::ISampleContainer> read;
  source_->read_ = [&] {
    const auto container = OneSample();
    read = container;
    return container;
  };
  EXPECT_EQ(preloader_->Preload(Order()), Result::SUCCESS_EXIST);
  EXPECT_TRUE(read.expired());
  source_->read_ = nullptr;
  EXPECT_EQ(preloader_->Preload(Order()), Result::SUCCESS_MISSING);
  const LogLine refused = {
      ILogger::Level_Debug,
      "CacheUpdateQueue " + fake::Identity(&queue_) + " does not exist: we don't push the output",
      kPreloaderFile};
  EXPECT_THAT(framework_.hostLog_, ElementsAre(refused, refused));
}

TEST_F(PreloaderTest, AServerKeepsItsFirstSourceUntilItIsRemoved) {
  const auto second = std::make_shared<fake::Source>();
  preloader_->SetStorageSource(kStorage, second, second);
  EXPECT_EQ(second.use_count(), 1);
  EXPECT_EQ(preloader_->Preload(Order()), Result::SUCCESS_EXIST);
  EXPECT_TRUE(preloader_->RemoveStorageSource(kStorage));
  EXPECT_FALSE(preloader_->RemoveStorageSource(kStorage));
  EXPECT_EQ(source_.use_count(), 1);
  EXPECT_EQ(preloader_->Preload(Order()), Result::ERROR);
  preloader_->SetStorageSource(kStorage, second, second);
  EXPECT_EQ(preloader_->Preload(Order()), Result::SUCCESS_MISSING);
}

TEST_F(PreloaderTest, RemoveTrackTravelsInAConfigurationOfItsOwn) {
  preloader_->Preload(Order());
  framework_.TakeCalls();
  preloader_->RemoveTrackId(kOrderedTrack);
  EXPECT_THAT(framework_.TakeCalls(),
              ElementsAre("GetUpdateConfigPrototype 4 qel.StorageSource storage",
                          "CreateParametersCollectionInstance", "Set remove_track=12",
                          "UpdateConfig remove_track=12"));
  preloader_->RemoveTrackId(TrackId(StorageId("other", 1), 12));
  EXPECT_THAT(framework_.TakeCalls(), IsEmpty());
  framework_.missing_ = "GetUpdateConfigPrototype";
  fake::ExpectCheck(framework_,
                    "[GetUpdateConfigPrototype failed (StorageSource)] [ Pointer is null ]",
                    kPreloaderFile, [&] { preloader_->RemoveTrackId(kOrderedTrack); });
  EXPECT_EQ(preloader_->Preload(Order()), Result::SUCCESS_EXIST);
}

TEST_F(PreloaderTest, InitSourceConfiguresANewElement) {
  const auto element = std::make_shared<fake::Source>();
  framework_.factory_ = std::make_shared<qel::ElementFactory<qel::ElementFactoryType_Source>>(
      [&](auto) { return element; });
  qel::MediaSourcePtr source = source_;
  qel::SourceControlPtr control = source_;
  QELPreloader::InitSource(source, control, kOrderedTrack);
  EXPECT_EQ(source, element);
  EXPECT_EQ(control, element);
  EXPECT_THAT(framework_.TakeCalls(),
              ElementsAre("GetInitConfigPrototype 4 qel.StorageSource storage",
                          "CreateParametersCollectionInstance", "Set tcp_address=\"server\"",
                          "Set unix_domain_socket=\"\"", "Set tcp_port=8080", "Set track_id=12",
                          "CreateMilestone ImplementElement label4.qel.StorageSource.storage",
                          "GetFactory 4 qel.StorageSource storage",
                          "GetManifest 4 qel.StorageSource storage", "CreateWrapper",
                          "SetInitConfig tcp_address=\"server\" tcp_port=8080 track_id=12"
                          " unix_domain_socket=\"\""));

  framework_.missing_ = "CreateWrapper";
  source = source_;
  EXPECT_EQ(fake::ErrorOf([&] { QELPreloader::InitSource(source, control, kOrderedTrack); }),
            "[mediaSource] [ Pointer is null ]");
  framework_.missing_ = "GetInitConfigPrototype";
  fake::ExpectCheck(
      framework_, "[GetInitConfigPrototype failed (StorageSource)] [ Pointer is null ]",
      kPreloaderFile, [&] { QELPreloader::InitSource(source, control, kOrderedTrack); });
  EXPECT_EQ(source, source_);
}

// The framework never sees two orders at once, nor a configuration of another order than the one
// it reads for.
TEST_F(PreloaderTest, OrdersNeverOverlap) {
  fake::Turns turns;
  source_->read_ = [&] {
    turns.Take();
    return OneSample();
  };
  fake::RunInThreads(
      3, 300, [&](int, int) { EXPECT_EQ(preloader_->Preload(Order()), Result::SUCCESS_EXIST); });
  EXPECT_EQ(turns.overlaps, 0);
  EXPECT_EQ(queue_.outputs_.size(), 900u);
}

TEST_F(PreloaderTest, RegistrationsWaitForTheOrderUnderWay) {
  const StorageId other("other", 1);
  std::vector<std::future<void>> waiting;
  source_->read_ = [&] {
    const auto start = [&](auto act) { waiting.push_back(std::async(std::launch::async, act)); };
    start([&] { preloader_->SetStorageSource(other, source_, source_); });
    start([&] { preloader_->RemoveTrackId(kOrderedTrack); });
    start([&] { preloader_->RemoveStorageSource(other); });
    for (const auto& call : waiting)
      EXPECT_EQ(call.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    return OneSample();
  };
  EXPECT_EQ(preloader_->Preload(Order()), Result::SUCCESS_EXIST);
}

}  // namespace Moravel::Player
