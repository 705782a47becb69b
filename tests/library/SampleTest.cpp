#include <limits>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "LibraryTest.h"
#include "Player/QELSample.h"

namespace Moravel::Player {

using Keys = std::set<std::string>;

class SampleTest : public fake::LibraryTest {};

TEST_F(SampleTest, ProtectionCounterFloorsOnlyWhenLowered) {
  QELSample sample;
  EXPECT_EQ(sample.GetProtectionCounter(), 0);
  EXPECT_EQ(sample.Protect(2), 2);
  EXPECT_EQ(sample.Protect(3), 5);
  EXPECT_EQ(sample.Unprotect(10), 0);
  EXPECT_EQ(sample.Protect(1), 1);
  EXPECT_EQ(sample.Unprotect(-2), 3);
  EXPECT_EQ(sample.Protect(-6), -3);
  EXPECT_EQ(sample.GetProtectionCounter(), -3);
  EXPECT_EQ(sample.Unprotect(0), 0);
}

TEST_F(SampleTest, ProtectionCounterStopsAtTheEndsOfItsRange) {
  constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
  constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
  QELSample sample;
  sample.Protect(kMax);
  EXPECT_EQ(sample.Protect(1), kMax);
  EXPECT_EQ(sample.Unprotect(-1), kMax);
  EXPECT_EQ(sample.Unprotect(kMin), kMax);
  sample.Unprotect(kMax);
  sample.Protect(kMin);
  EXPECT_EQ(sample.Protect(-1), kMin);
  EXPECT_EQ(sample.Unprotect(kMax), 0);
}

TEST_F(SampleTest, ConcurrentProtectionsGetDistinctConsecutiveCounts) {
  constexpr int kThreads = 4;
  constexpr int kCalls = 5000;
  QELSample sample;
  std::vector<std::vector<int64_t>> counts(kThreads);
  {
    std::vector<std::jthread> threads;
    for (auto& own : counts) {
      threads.emplace_back([&sample, &own] {
        for (int i = 0; i < kCalls; ++i) {
          own.push_back(sample.Protect(1));
          EXPECT_GE(sample.GetProtectionCounter(), own.back());
        }
      });
    }
  }
  std::set<int64_t> all;
  for (const auto& own : counts)
    all.insert(own.begin(), own.end());
  EXPECT_EQ(all.size(), size_t{kThreads * kCalls});
  EXPECT_EQ(*all.rbegin(), kThreads * kCalls);
  EXPECT_EQ(sample.GetProtectionCounter(), kThreads * kCalls);
}

TEST_F(SampleTest, WithoutContainerThereIsNothing) {
  QELSample sample;
  sample.SetBottomField(true);
  uint64_t size = 77;
  EXPECT_TRUE(sample.GetPropertyKeys().empty());
  EXPECT_TRUE(sample.GetDataKeys().empty());
  EXPECT_EQ(sample.GetData("a", size), nullptr);
  EXPECT_EQ(size, 77u);
  EXPECT_FALSE(sample.GetContainer());
}

TEST_F(SampleTest, KeysAndDataAreTheStreamsWithBuffers) {
  const auto first = fake::MakeBuffer(3, "first");
  QELSample sample;
  sample.SetContainer(fake::MakeContainer({nullptr, fake::MakeSample("a", {0}, first),
                                           fake::MakeSample("a", {0}, fake::MakeBuffer(1, "x")),
                                           fake::MakeSample("b", {1}, fake::MakeBuffer(1, "y")),
                                           fake::MakeSample("none", {1}, nullptr)}));
  EXPECT_EQ(sample.GetDataKeys(), (Keys{"a", "b"}));
  EXPECT_EQ(sample.GetPropertyKeys(), (Keys{"a", "b"}));
  sample.SetBottomField(true);
  EXPECT_EQ(sample.GetDataKeys(), (Keys{"a", "b"}));
  EXPECT_EQ(sample.GetPropertyKeys(), (Keys{"a", "b", "bottom"}));

  uint64_t size = 77;
  for (const char* key : {"A", "none", "bottom", "aa", ""})
    EXPECT_EQ(sample.GetData(key, size), nullptr) << key;
  EXPECT_EQ(sample.GetProperty("bottom", size), nullptr);
  EXPECT_EQ(size, 77u);
  EXPECT_EQ(sample.GetData("a", size), first->GetInnerBuffer());
  EXPECT_EQ(size, 5u) << "the inner buffer's size, not the data's";
}

TEST_F(SampleTest, TimeLimitsCountEditUnits) {
  QELSample sample;
  sample.SetTimePointAndDurationFromTimeLimits(
      qel::TimeLimits(qel::MediaTime(qel::EditRate(30000, 1001), 50, nullptr), 2));
  EXPECT_EQ(sample.GetTimePoint(), fake::At(50, 1001, 30000));
  EXPECT_EQ(sample.GetDuration(), fake::At(2, 1001, 30000));
}

}  // namespace Moravel::Player
