#include <cstdint>
#include <sstream>
#include <utility>

#include "LibraryTest.h"
#include "Player/PreloadOrder.h"

namespace Moravel {

using fake::At;
using Time::Ratio;
using Time::TimePoint;

class TimePointTest : public fake::LibraryTest {};

TEST_F(TimePointTest, SampleNumberInvertsFromRatioAtEveryRate) {
  const std::pair<int64_t, int64_t> rates[] = {
      {24, 1},    {25, 1},       {30, 1},       {50, 1},       {60, 1},
      {120, 1},   {24000, 1001}, {30000, 1001}, {60000, 1001}, {120000, 1001},
      {48000, 1}, {1, 10},       {999983, 7},   {90000, 1},    {15360, 999331}};
  for (const auto& [u, d] : rates) {
    for (const int64_t n : {int64_t{-100000}, int64_t{-1}, int64_t{0}, int64_t{1}, int64_t{2},
                            int64_t{99999}, int64_t{20'000'001}}) {
      const TimePoint time = At(uint64_t(n), uint64_t(d), uint64_t(u));
      EXPECT_EQ(time.SampleNumber(Ratio(u, d)), n) << u << "/" << d;
    }
  }
  EXPECT_EQ(At(1, 1, 2).SampleNumber(Ratio(25, 1)), 12) << "a time within a period is its sample's";
  EXPECT_EQ((TimePoint() - At(1, 1, 1000)).SampleNumber(Ratio(25, 1)), -1);
}

TEST_F(TimePointTest, RefusesDegenerateRatesAndTimesOutOfRange) {
  for (const auto& [u, d] : {std::pair{0, 1}, {25, 0}, {0, 0}, {-25, 1}, {25, -1}}) {
    EXPECT_THROW(TimePoint().SampleNumber(Ratio(u, d)), qel::QELRuntimeError);
    EXPECT_THROW(At(1, uint64_t(d), uint64_t(u)), qel::QELRuntimeError);
  }
  EXPECT_THROW(At(INT64_MAX, INT64_MAX, 1), qel::QELRuntimeError);
  EXPECT_THROW(At(INT64_MAX, 1, 1), qel::QELRuntimeError);
  const TimePoint end = At(13'000'000'000, 1, 1);
  EXPECT_THROW(end + end, qel::QELRuntimeError);
  EXPECT_THROW(TimePoint() - end - end, qel::QELRuntimeError);
}

TEST_F(TimePointTest, TextForms) {
  const auto text = [](const TimePoint& time) { return (std::ostringstream() << time).str(); };
  EXPECT_EQ(text(At(90061, 25, 25)), "25:01:01.000000");
  EXPECT_EQ(text(At(101, 1, 25)), "00:00:04.040000");
  EXPECT_EQ(text(TimePoint() - At(1, 1, 25)), "-00:00:00.040000");
  EXPECT_EQ(At(1, 1001, 30000).ToDurationString(), "0.033366 s");
  EXPECT_EQ((TimePoint() - At(3, 1, 2)).ToDurationString(), "-1.500000 s");
}

TEST_F(TimePointTest, IdsAndOrdersCompareAsValues) {
  using namespace Player;
  EXPECT_EQ(TrackId(StorageId("10.0.0.1", 80), 12).ToString(), "10.0.0.1:80:T12");
  EXPECT_EQ(StorageId("::1", 80).ToString(), "[::1]:80");
  EXPECT_TRUE(StorageId("a", 9) < StorageId("b", 1));
  EXPECT_TRUE(StorageId("a", 1) < StorageId("a", 2));
  EXPECT_FALSE(StorageId("a", 1) < StorageId("a", 1));
  PreloadOrder early(At(1, 1, 1), SampleRate(25, 1), nullptr, TrackId());
  PreloadOrder late(At(2, 1, 1), SampleRate(25, 1), nullptr, TrackId());
  EXPECT_TRUE(early < late);
  late.SetPriority(1);
  EXPECT_TRUE(late < early);
  late.Set(early.tp_, early.s_, early.queue_, early.id_);
  EXPECT_TRUE(late == early);
}

}  // namespace Moravel
