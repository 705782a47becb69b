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
  EXPECT_EQ(sample.Unprotect(-2), 2);
  EXPECT_EQ(sample.Protect(-5), -3);
  EXPECT_EQ(sample.GetProtectionCounter(), -3);
  EXPECT_EQ(sample.Unprotect(0), 0);
}

TEST_F(SampleTest, ProtectionCounterStopsAtTheEndsOfItsRange) {
  constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
  constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
  QELSample sample;
  sample.Protect(kMax);
  EXPECT_EQ(sample.Protect(1), kMax);
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
  fake::RunInThreads(kThreads, kCalls, [&](int thread, int) {
    std::vector<int64_t>& own = counts[size_t(thread)];
    own.push_back(sample.Protect(1));
    EXPECT_GE(sample.GetProtectionCounter(), own.back());
  });
  std::set<int64_t> all;
  for (const auto& own : counts)
    all.insert(own.begin(), own.end());
  EXPECT_EQ(all.size(), size_t{kThreads * kCalls});
  EXPECT_EQ(*all.rbegin(), kThreads * kCalls);
  EXPECT_EQ(sample.GetProtectionCounter(), kThreads * kCalls);
}

TEST_F(SampleTest, KeysAndDataAreTheStreamsWithBuffers) {
  const auto first = fake::MakeBuffer(3, "first");
  QELSample sample;
  sample.SetBottomField(true);
  uint64_t size = 77;
  EXPECT_EQ(sample.GetData("a", size), nullptr);
  EXPECT_EQ(sample.GetDataKeys(), Keys());
  EXPECT_EQ(sample.GetPropertyKeys(), Keys());

  sample.SetContainer(
      fake::MakeContainer({nullptr, fake::MakeSample("a", {0}, first), fake::MakeSample("a", {0}),
                           fake::MakeSample("b", {1}), fake::MakeSample("none", {1}, nullptr)}));
  EXPECT_EQ(sample.GetDataKeys(), (Keys{"a", "b"}));
  EXPECT_EQ(sample.GetPropertyKeys(), (Keys{"a", "b", "bottom"}));
  sample.SetBottomField(false);
  EXPECT_EQ(sample.GetPropertyKeys(), (Keys{"a", "b"}));
  for (const char* key : {"A", "none", "bottom", "aa", ""})
    EXPECT_EQ(sample.GetData(key, size), nullptr) << key;
  EXPECT_EQ(sample.GetProperty("bottom", size), nullptr);
  EXPECT_EQ(size, 77u);
  EXPECT_EQ(sample.GetData("a", size), first->GetInnerBuffer());
  EXPECT_EQ(size, 5u) << "the inner buffer's size, not the data's";
}

}  // namespace Moravel::Player
