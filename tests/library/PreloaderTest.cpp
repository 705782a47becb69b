#include "Player/QELPreloader.h"

#include <chrono>
#include <future>

#include "Framework.h"

namespace Moravel::Test {

using namespace Player;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Result = IPreloader::PreloadResult;

const TrackId kTrack(StorageId("server", 8080), 12);

class PreloaderTest : public LibraryTest {
 protected:
  PreloaderTest() {
    source_->read_ = [] { return Read({Sample("s", 0), Sample("t", 1, Buffer(0))}); };
    preloader_.SetStorageSource(kTrack.StorageId(), source_, source_);
  }

  // The order's time is that of sample 100 at 25/1.
  PreloadOrder Order(Queue* queue, TrackId track = kTrack) {
    return {At(100, 1, 25), SampleRate(25, 1), queue, track};
  }
  Result Preload() { return preloader_.Preload(Order(&queue_)); }
  std::string Self() { return std::to_string(reinterpret_cast<intptr_t>(&preloader_)); }

  std::shared_ptr<Source> source_ = std::make_shared<Source>();
  Queue queue_;
  QELPreloader preloader_;
};

TEST_F(PreloaderTest, ServesAnOrderInFixedSteps) {
  preloader_.SetExistingCacheUpdateQueues(&queue_);
  EXPECT_EQ(Preload(), Result::SUCCESS_EXIST);
  EXPECT_THAT(TakeCalls(),
              ElementsAre("Exists", "UpdateConfig track_id=12", "GotoTimeOffset 100@25/1 source",
                          "GetSample", "PushIfExists", "Push"));
  ASSERT_EQ(queue_.outputs_.size(), 1u);
  EXPECT_EQ(queue_.outputs_[0].first, At(100, 1, 25));
  const ISample& sample = *queue_.outputs_[0].second;
  EXPECT_EQ(sample.GetTimePoint(), At(50, 1001, 30000));
  EXPECT_EQ(sample.GetDuration(), At(2, 1001, 30000));
  EXPECT_EQ(sample.GetDataKeys(), (std::set<std::string>{"s", "t"}));

  hasLogger_ = false;
  EXPECT_EQ(QELPreloader().Preload(Order(&queue_)), Result::ERROR) << "without a logger too";
}

TEST_F(PreloaderTest, RefusesWhatItCannotServe) {
  const auto expectRefused = [&](QELPreloader& preloader, const PreloadOrder& order, int level,
                                 const std::string& text) {
    hostLog_.clear();
    EXPECT_EQ(preloader.Preload(order), Result::ERROR);
    EXPECT_THAT(hostLog_, ElementsAre(Pair(level, text)));
    EXPECT_THAT(queue_.outputs_, IsEmpty());
  };
  queue_.exists_ = false;
  preloader_.SetExistingCacheUpdateQueues(&queue_);
  expectRefused(preloader_, Order(nullptr), 50, Self() + ": received an order with empty queue");
  expectRefused(preloader_, Order(&queue_), 20,
                "It appears the queue is not valid anymore: we don't process the order on "
                "server:8080:T12 at 00:00:04.000000");
  EXPECT_THAT(TakeCalls(), ElementsAre("Log", "Exists", "Log"));
  preloader_.SetExistingCacheUpdateQueues(nullptr);
  expectRefused(preloader_, Order(&queue_, TrackId(StorageId("server", 8081), 12)), 50,
                Self() + ": does not have a source set to read on storage server:8081");
  failingCall_ = 0;
  expectRefused(preloader_, Order(&queue_), 50,
                "Preload: UpdateConfig error: failing UpdateConfig track_id=12");
  onCall_ = [](const std::string& call) {
    if (call.starts_with("UpdateConfig"))
      throw std::bad_alloc();
  };
  EXPECT_THROW(Preload(), std::bad_alloc) << "that is no answer of the server";
  onCall_ = [](const std::string&) {};
  Register(source_, false);
  QELPreloader bare;
  bare.SetStorageSource(kTrack.StorageId(), source_, source_);
  expectRefused(bare, Order(&queue_), 50,
                "Preload: UpdateConfig error: the framework has no update configuration for "
                "qel.StorageSource");
  EXPECT_THAT(frameworkLog_, IsEmpty());
}

TEST_F(PreloaderTest, AReadIsAsGoodAsItsFirstSample) {
  struct RoomWithoutData : qel::BufferView {
    using BufferView::BufferView;
    uint32_t GetDataSize() const override { return 0; }
  };
  const auto full = Sample("full", 0);
  for (const qel::SampleList& samples :
       {qel::SampleList{},
        {Sample("empty", 0, Buffer(0)), full},
        {Sample("room", 0, std::make_shared<RoomWithoutData>(nullptr, nullptr, 9)), full},
        {nullptr, full},
        {Sample("none", 0, nullptr), full}}) {
    source_->read_ = [&] { return Read(samples); };
    EXPECT_EQ(Preload(), Result::SUCCESS_MISSING);
    EXPECT_EQ(queue_.outputs_.back().second, nullptr);
    EXPECT_EQ(queue_.outputs_.back().first, At(100, 1, 25));
  }
}

// Of a rate, the framework takes 32 bits of each part; the number is that of the full rate.
TEST_F(PreloaderTest, TellsWhatItReadsAtTraceLevel) {
  constexpr int64_t kBit32 = int64_t{1} << 32;
  level_ = orl::mv::logging::ILogger::Level_Trace;
  source_->read_ = [] { return Read({}); };
  EXPECT_EQ(preloader_.Preload({At(4, 1, 1), {kBit32 + 25, kBit32 + 1}, &queue_, kTrack}),
            Result::SUCCESS_MISSING);
  EXPECT_THAT(TakeCalls(), testing::Contains("GotoTimeOffset 4@25/1 source"));
  EXPECT_THAT(hostLog_,
              ElementsAre(Pair(10, Self() + ": GetSample at mediaTime: 4 x (25, 1), obtained from "
                                            "tp 00:00:04.000000"),
                          Pair(10, "Invalid sample at 00:00:04.000000")));
}

TEST_F(PreloaderTest, DestroysTheSampleThatNobodyTakes) {
  std::weak_ptr<const qel::ISampleContainer> read;
  source_->read_ = [&, make = source_->read_] {
    const auto container = make();
    read = container;
    return container;
  };
  queue_.takes_ = false;
  preloader_.SetExistingCacheUpdateQueues(&queue_);
  EXPECT_EQ(Preload(), Result::SUCCESS_EXIST);
  EXPECT_TRUE(read.expired());
  ASSERT_EQ(hostLog_.size(), 1u);
  EXPECT_THAT(hostLog_[0].second, testing::EndsWith("does not exist: we don't push the output"));
}

TEST_F(PreloaderTest, KeepsTheFirstSourceOfAServerUntilItIsRemoved) {
  const auto second = std::make_shared<Source>();
  preloader_.SetStorageSource(kTrack.StorageId(), second, second);
  EXPECT_EQ(second.use_count(), 1);
  preloader_.RemoveTrackId(kTrack);
  preloader_.RemoveTrackId(TrackId(StorageId("other", 1), 12));
  EXPECT_THAT(TakeCalls(), ElementsAre("UpdateConfig remove_track=12"));
  EXPECT_EQ(Preload(), Result::SUCCESS_EXIST) << "with a configuration of its own";
  EXPECT_TRUE(preloader_.RemoveStorageSource(kTrack.StorageId()));
  EXPECT_FALSE(preloader_.RemoveStorageSource(kTrack.StorageId()));
  EXPECT_EQ(Preload(), Result::ERROR);
}

TEST_F(PreloaderTest, RefusesEmptyHandles) {
  const StorageId other("other", 1);
  ExpectCheck("[source] [ Pointer is null ]",
              [&] { preloader_.SetStorageSource(other, nullptr, source_); });
  ExpectCheck("[control] [ Pointer is null ]",
              [&] { preloader_.SetStorageSource(other, source_, nullptr); });
  EXPECT_FALSE(preloader_.RemoveStorageSource(other));
}

TEST_F(PreloaderTest, AnElementDiesWithItsLastHandleWhenTheLockIsFree) {
  struct Dying : Source {
    explicit Dying(std::function<void()> last) : last_(std::move(last)) {}
    ~Dying() override { last_(); }
    std::function<void()> last_;
  };
  const StorageId other("other", 1);
  auto dying = std::make_shared<Dying>([&] {
    auto order = std::async(std::launch::async, [&] { return Preload(); });
    EXPECT_EQ(order.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  });
  preloader_.SetStorageSource(other, dying, dying);
  dying.reset();
  EXPECT_TRUE(preloader_.RemoveStorageSource(other));
  EXPECT_EQ(queue_.outputs_.size(), 1u);
}

TEST_F(PreloaderTest, InitSourceConfiguresANewElement) {
  Register(source_);
  qel::MediaSourcePtr source;
  qel::SourceControlPtr control;
  QELPreloader::InitSource(source, control, kTrack);
  EXPECT_EQ(source, source_);
  EXPECT_EQ(control, source_);
  EXPECT_THAT(TakeCalls(), ElementsAre("SetInitConfig server tcp_port=8080 track_id=12"));
}

// One at a time, whatever point an order has come to: orders, and registrations beside them.
TEST_F(PreloaderTest, EverythingWaitsForTheOrderUnderWay) {
  const StorageId other("other", 1);
  preloader_.SetExistingCacheUpdateQueues(&queue_);
  for (const std::string point : {"Exists", "UpdateConfig track_id=12", "GetSample", "Push"}) {
    std::vector<std::future<void>> waiting;
    onCall_ = [&](const std::string& call) {
      if (call != point || !waiting.empty())
        return;
      const auto start = [&](auto act) { waiting.push_back(std::async(std::launch::async, act)); };
      start([&] { preloader_.SetStorageSource(other, source_, source_); });
      start([&] { preloader_.RemoveTrackId(kTrack); });
      start([&] { preloader_.RemoveStorageSource(other); });
      start([&] { Preload(); });
      const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(20);
      for (const auto& started : waiting)
        EXPECT_EQ(started.wait_until(end), std::future_status::timeout) << point;
    };
    EXPECT_EQ(Preload(), Result::SUCCESS_EXIST);
  }
}

// Whatever fails, and wherever: an order hands on its sample or nothing, leaves no lock behind and
// leaks nothing.
TEST_F(PreloaderTest, FailuresLeaveNothingBehind) {
  level_ = ILogger::Level_Trace;
  for (Queue* registry : {static_cast<Queue*>(nullptr), &queue_}) {
    preloader_.SetExistingCacheUpdateQueues(registry);
    Result result{};
    FailEach(
        [&] {
          queue_.outputs_.clear();
          result = Result::ERROR;
          result = Preload();
        },
        [&](bool) {
          EXPECT_EQ(queue_.outputs_.size(), result == Result::ERROR ? 0u : 1u);
          EXPECT_TRUE(preloader_.RemoveStorageSource(kTrack.StorageId()));
          preloader_.SetStorageSource(kTrack.StorageId(), source_, source_);
        });
    EXPECT_EQ(result, Result::SUCCESS_EXIST);
  }
  Register(source_);
  const auto before = std::make_shared<Source>();
  qel::MediaSourcePtr source;
  qel::SourceControlPtr control;
  FailEach(
      [&] {
        source = before;
        control = before;
        QELPreloader::InitSource(source, control, kTrack);
      },
      [&](bool thrown) {
        EXPECT_TRUE(thrown || source == source_);
        EXPECT_EQ(source == source_, control == source_);
      });
  FailEach([&] { preloader_.RemoveTrackId(kTrack); }, [](bool) {});
}

}  // namespace Moravel::Test
