#include <numeric>
#include <random>

#include "SourceFixture.h"
#include "elements/storage/SampleTimes.h"
#include "elements/storage/TrackInfo.h"

namespace Moravel::Test {
namespace {

const qel::EditRate kRates[] = {{24000, 1001}, {24, 1},  {25, 1}, {30000, 1001},  {30, 1},
                                {48, 1},       {50, 1},  {25, 2}, {60000, 1001},  {60, 1},
                                {100, 1},      {120, 1}, {15, 1}, {120000, 1001}, {90, 1}};

enum class Rounding { Down, Nearest, Up };

int64_t Rounded(int64_t number, const qel::EditRate& rate, int64_t units, Rounding rounding) {
  const int64_t numerator = number * units * rate._denominator;
  const int64_t way = rounding == Rounding::Down ? 0 : rate._numerator - 1;
  return (numerator + (rounding == Rounding::Nearest ? way / 2 : way)) / rate._numerator;
}

qel::SampleTimes TimesOf(const std::vector<int64_t>& starts) {
  qel::SampleTimes times;
  for (size_t i = 0; i < starts.size(); ++i)
    times.Add(1, i + 1 < starts.size() ? starts[i + 1] - starts[i] : 1);
  return times;
}

TEST(SettleRate, RoundedTimesAreTheRateThatTheyStandForWhicheverWayTheyWereRounded) {
  for (const qel::EditRate& rate : kRates) {
    for (const int64_t units : {600, 1000, 16000, 90000, 1'000'000}) {
      for (const auto rounding : {Rounding::Down, Rounding::Nearest, Rounding::Up}) {
        for (const int64_t count : {3, 24, 2'000}) {
          for (const bool hasGaps : {false, true}) {
            std::vector<int64_t> numbers(static_cast<size_t>(count));
            std::iota(numbers.begin(), numbers.end(), 0);
            for (int64_t i = 10; hasGaps && i < count; ++i)  // every tenth picture lasts for three
              numbers[static_cast<size_t>(i)] += i / 10 * 2;
            std::vector<int64_t> starts;
            for (const int64_t number : numbers)
              starts.push_back(Rounded(number, rate, units, rounding));
            const auto rated = qel::SettleRate(TimesOf(starts), units, 1);
            SCOPED_TRACE(QEL_TEXT(rate._numerator << "/" << rate._denominator << " in " << units
                                                  << " " << static_cast<int>(rounding) << " "
                                                  << count << (hasGaps ? " with gaps" : "")));
            ASSERT_EQ(rated.isVariable, hasGaps && count > 10);
            if (count == 2'000) {
              ASSERT_EQ(rated.nominalRate, rate);
            }
            ASSERT_EQ(rated.timeRate, rated.nominalRate);
            for (size_t i = 0; i < numbers.size(); ++i)
              ASSERT_EQ(rated.times.Start(static_cast<int64_t>(i)), numbers[i]);
          }
        }
      }
    }
  }
}

TEST(SettleRate, VariableTimesStayAsTheyAre) {
  std::mt19937 random(1);
  std::vector<int64_t> starts = {0};
  for (int i = 0; i < 1000; ++i)
    starts.push_back(starts.back() + 20 + static_cast<int64_t>(random() % 60));
  const auto rated = qel::SettleRate(TimesOf(starts), 1000, 1);
  EXPECT_TRUE(rated.isVariable);
  EXPECT_EQ(rated.timeRate, qel::EditRate(1000, 1));
  for (size_t i = 0; i < starts.size(); ++i)
    EXPECT_EQ(rated.times.Start(static_cast<int64_t>(i)), starts[i]);
}

// Every picture by its own number, in any order.
TEST(Times, EveryStoredPictureIsFoundOnceAndInOrder) {
  constexpr int kPictures = 40;
  const TempFolder folder;
  Player::StorageServer server({});
  SourceUnderTest source;
  int64_t track = 0;
  for (const qel::EditRate& rate : kRates) {
    for (const char* const options :
         {"", "video_track_timescale=600", "video_track_timescale=1000",
          "video_track_timescale=90000", "movflags=frag_keyframe", "avi"}) {
      const bool isAvi = options == std::string("avi");
      const Clip clip = MakeClip({.file = folder / "clip",
                                  .container = isAvi ? Container::Avi : Container::Mov,
                                  .width = 16,
                                  .height = 16,
                                  .pictures = kPictures,
                                  .rateNumerator = static_cast<int>(rate._numerator),
                                  .rateDenominator = static_cast<int>(rate._denominator),
                                  .options = isAvi ? "" : options});
      SCOPED_TRACE(QEL_TEXT(rate._numerator << "/" << rate._denominator << " " << options));
      server.AddTrack(++track, clip.file);
      source.Init(server.Port(), track);
      const auto info = std::dynamic_pointer_cast<const qel::TrackInfo>(
          source.media->GetDefinedOutput("")->GetInfoList().at(0));
      EXPECT_FALSE(info->Index()->Facts().isVariableRate);
      EXPECT_THAT(info->Index()->Facts().problems, ::testing::IsEmpty());
      ASSERT_EQ(info->GetSampleCount(), kPictures);
      std::vector<int64_t> order(3 * kPictures);  // forward, reverse, random
      for (const int part : {0, 1, 2})
        std::iota(order.begin() + part * kPictures, order.begin() + (part + 1) * kPictures, 0);
      std::reverse(order.begin() + kPictures, order.begin() + 2 * kPictures);
      std::shuffle(order.begin() + 2 * kPictures, order.end(), std::mt19937(1));
      const auto [numerator, denominator] = info->GetEditRate();
      for (const int64_t number : order) {
        source.Goto(number, numerator, denominator);
        ASSERT_EQ(AllBytes(source.media->GetSample()), clip.samples[static_cast<size_t>(number)]);
      }
    }
  }
}

}  // namespace
}  // namespace Moravel::Test
