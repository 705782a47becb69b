#include <set>
#include <sstream>

#include "Framework.h"
#include "Player/PreloadOrder.h"
#include "Player/QELSample.h"

namespace Moravel::Test {

using namespace Player;
using Keys = std::set<std::string>;
using Time::Ratio;
using Time::TimePoint;

class SampleTest : public LibraryTest {};

TEST_F(SampleTest, ProtectionCounterFloorsOnlyWhenLowered) {
  QELSample sample;
  EXPECT_EQ(sample.Protect(2), 2);
  EXPECT_EQ(sample.Protect(3), 5);
  EXPECT_EQ(sample.Unprotect(10), 0);
  EXPECT_EQ(sample.Unprotect(-2), 2);
  EXPECT_EQ(sample.Protect(-5), -3);
  EXPECT_EQ(sample.GetProtectionCounter(), -3);
  EXPECT_EQ(sample.Unprotect(0), 0);
}

TEST_F(SampleTest, ConcurrentProtectionsGetDistinctConsecutiveCounts) {
  constexpr int kThreads = 4, kCalls = 5000;
  QELSample sample;
  std::vector<int64_t> counts(kThreads * kCalls);
  std::vector<std::jthread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int i = 0; i < kCalls; ++i) {
        int64_t& own = counts[size_t(thread * kCalls + i)] = sample.Protect(1);
        EXPECT_GE(sample.GetProtectionCounter(), own);
      }
    });
  }
  threads.clear();
  EXPECT_EQ(std::set(counts.begin(), counts.end()).size(), counts.size());
  EXPECT_EQ(sample.GetProtectionCounter(), kThreads * kCalls);
}

TEST_F(SampleTest, KeysAndDataAreTheStreamsWithBuffers) {
  struct Padded : qel::IBuffer {
    const uint8_t* GetInnerBuffer() const override { return bytes_; }
    uint32_t GetInnerBufferSize() const override { return sizeof bytes_; }
    uint32_t GetDataSize() const override { return 3; }
    uint8_t bytes_[5];
  };
  const auto first = std::make_shared<Padded>();
  QELSample sample;
  sample.SetBottomField(true);
  uint64_t size = 77;
  EXPECT_EQ(sample.GetData("a", size), nullptr);
  EXPECT_EQ(sample.GetPropertyKeys(), Keys()) << "there is no container";
  sample.SetContainer(Read({nullptr, Sample("a", 0, first), Sample("a", 0), Sample("b", 1),
                            Sample("none", 1, nullptr)}));
  EXPECT_EQ(sample.GetDataKeys(), (Keys{"a", "b"}));
  EXPECT_EQ(sample.GetPropertyKeys(), (Keys{"a", "b", "bottom"}));
  sample.SetBottomField(false);
  EXPECT_EQ(sample.GetPropertyKeys(), (Keys{"a", "b"}));
  for (const char* key : {"A", "none", "bottom", "aa", ""})
    EXPECT_EQ(sample.GetData(key, size), nullptr) << key;
  EXPECT_EQ(size, 77u);
  EXPECT_EQ(sample.GetData("a", size), first->bytes_);
  EXPECT_EQ(size, 5u) << "the inner buffer's size, not the data's";
}

TEST(TimePointTest, SampleNumberInvertsFromRatioAtEveryRate) {
  for (const auto& [u, d] : {std::pair<int64_t, int64_t>{25, 1},
                             {120, 1},
                             {24000, 1001},
                             {60000, 1001},
                             {48000, 1},
                             {1, 10},
                             {999983, 7},
                             {TimePoint::kTicksPerSecond, 1},
                             {TimePoint::kTicksPerSecond - 1, 1},
                             {15360, 999331}}) {
    for (const int64_t n : {-100'000, -1, 0, 1, 2, 99'999, 20'000'001})
      EXPECT_EQ(At(uint64_t(n), uint64_t(d), uint64_t(u)).SampleNumber(Ratio(u, d)), n) << u;
  }
  EXPECT_EQ(At(1, 1, 2).SampleNumber(Ratio(25, 1)), 12) << "a time within a period is its sample's";
  EXPECT_EQ((TimePoint() - At(1, 1, 1000)).SampleNumber(Ratio(25, 1)), -1);
  EXPECT_THROW(TimePoint().SampleNumber(Ratio(TimePoint::kTicksPerSecond + 1, 1)),
               qel::QELRuntimeError);
  EXPECT_EQ(At(1'000'000'001, 1, 1'000'000'000).SampleNumber(Ratio(1, 1)), 1);
  for (const auto& [u, d] : {std::pair{0, 1}, {25, 0}, {-25, 1}, {25, -1}}) {
    EXPECT_THROW(TimePoint().SampleNumber(Ratio(u, d)), qel::QELRuntimeError);
    EXPECT_THROW(At(1, uint64_t(d), uint64_t(u)), qel::QELRuntimeError);
  }
  EXPECT_THROW(At(INT64_MAX, INT64_MAX, 1), qel::QELRuntimeError);
  const TimePoint end = At(13'000'000'000, 1, 1);
  EXPECT_THROW(end + end, qel::QELRuntimeError);
}

TEST(TimePointTest, TextsAndOrders) {
  const auto text = [](const TimePoint& time) { return (std::ostringstream() << time).str(); };
  EXPECT_EQ(text(At(90061, 25, 25)), "25:01:01.000000");
  EXPECT_EQ(text(At(101, 1, 25)), "00:00:04.040000");
  EXPECT_EQ(text(TimePoint() - At(1, 1, 25)), "-00:00:00.040000");
  EXPECT_EQ((TimePoint() - At(3, 1, 2)).ToDurationString(), "-1.500000 s");
  const TimePoint lowest = At(uint64_t(INT64_MIN), 1, TimePoint::kTicksPerSecond);
  EXPECT_EQ(text(lowest), "-3631020:06:27.832732");
  EXPECT_EQ(lowest.ToDurationString(), "-13071672387.832732 s");
  EXPECT_EQ(TrackId(StorageId("::1", 80), 12).ToString(), "[::1]:80:T12");
  EXPECT_TRUE(StorageId("a", 9) < StorageId("b", 1));
  EXPECT_TRUE(StorageId("a", 1) < StorageId("a", 2));
}

TEST(PreloadOrderTest, SortsByPriorityAndTimeAndIsEqualOnlyToItsLike) {
  const auto order = [](int32_t priority, uint64_t time, int64_t rate = 25, int64_t track = 0) {
    PreloadOrder made(At(time, 1, 1), SampleRate(rate, 1), nullptr, TrackId({}, track));
    made.SetPriority(priority);
    return made;
  };
  const PreloadOrder sorted[] = {order(2, 9), order(1, 1),        order(1, 2),
                                 order(0, 0), order(0, 0, 25, 1), order(0, 0, 50)};
  for (const PreloadOrder& a : sorted) {
    for (const PreloadOrder& b : sorted) {
      EXPECT_EQ(a < b, &a < &b);
      EXPECT_EQ(a == b, &a == &b);
    }
  }
}

}  // namespace Moravel::Test
