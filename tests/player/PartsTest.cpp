#include <gmock/gmock.h>

#include <set>

#include "moravel-play/Options.h"
#include "moravel-play/PlaySequence.h"
#include "moravel-play/Statistics.h"
#include "moravel-play/Track.h"

namespace Moravel::Play {
namespace {

using ::testing::HasSubstr;

TEST(TrackArgument, IsATrackIdOrAFile) {
  const struct {
    const char* text;
    const char* id;  // null: a file
  } cases[] = {
      {"127.0.0.1:8080:T7", "127.0.0.1:8080:T7"},
      {"storage-3.example.org:80:T0", "storage-3.example.org:80:T0"},
      {"[::1]:65535:T12", "[::1]:65535:T12"},
      {"clip.avi", nullptr},
      {"./host:80:T1", nullptr},
      {"host:80:Tx", nullptr},
      {"host:80", nullptr},
      {"host:80:T1.avi", nullptr},
  };
  for (const auto& [text, id] : cases) {
    const TrackArgument argument = ParseTrackArgument(text);
    EXPECT_EQ(argument.text, text);
    ASSERT_EQ(argument.remoteId.has_value(), id != nullptr) << text;
    if (id != nullptr) {
      EXPECT_EQ(argument.remoteId->ToString(), id);
    }
  }
  EXPECT_EQ(ParseTrackArgument("[::1]:80:T1").remoteId->StorageId().Address(), "::1");
}

TEST(TrackArgument, RefusesWhatIsOutOfRange) {
  for (const char* text : {"host:0:T1", "host:65536:T1", "host:99999999999999999999:T1",
                           "host:80:T99999999999999999999", "::1:80:T1"}) {
    EXPECT_THROW(ParseTrackArgument(text), UsageError) << text;
  }
}

TEST(PlaySequence, PlaysEachSampleOnce) {
  for (const Order order : {Order::Forward, Order::Reverse, Order::Random}) {
    for (const int64_t count : {1, 2, 3, 7, 64, 100, 1000}) {
      const PlaySequence sequence(40, count, order);
      std::set<int64_t> numbers;
      for (int64_t position = 0; position < count; ++position)
        numbers.insert(sequence.SampleAt(position));
      EXPECT_EQ(numbers.size(), static_cast<size_t>(count));
      EXPECT_EQ(*numbers.begin(), 40);
      EXPECT_EQ(*numbers.rbegin(), 39 + count);
    }
  }
  EXPECT_EQ(PlaySequence(40, 10, Order::Reverse).SampleAt(0), 49);
}

TEST(PlaySequence, RandomOrderJumps) {
  constexpr int64_t kCount = 1000;
  const PlaySequence sequence(0, kCount, Order::Random);
  int neighbours = 0;
  for (int64_t position = 1; position < kCount; ++position)
    neighbours += std::abs(sequence.SampleAt(position) - sequence.SampleAt(position - 1)) < 10;
  EXPECT_LT(neighbours, kCount / 10);
}

TEST(LatencyHistogram, KeepsPercentilesWithinAFewPercent) {
  LatencyHistogram histogram;
  EXPECT_EQ(histogram.PercentileMilliseconds(0.5), 0);
  for (int i = 1; i <= 1000; ++i)
    histogram.Add(std::chrono::microseconds(i * 100));
  EXPECT_NEAR(histogram.PercentileMilliseconds(0.5), 50, 3.5);
  EXPECT_NEAR(histogram.PercentileMilliseconds(0.99), 99, 7);
  histogram.Add(std::chrono::hours(24));
  EXPECT_NEAR(histogram.PercentileMilliseconds(1), 86'400'000, 6'000'000);
  histogram.Add(std::chrono::microseconds(-5));
}

TEST(TimeCode, CountsPicturesWithinTheSecond) {
  const struct {
    Player::SampleRate rate;
    int64_t number;
    const char* text;
  } cases[] = {
      {{25, 1}, 0, "00:00:00:00"},        {{25, 1}, 24, "00:00:00:24"},
      {{25, 1}, 25, "00:00:01:00"},       {{25, 1}, 90'061 * 25 + 7, "25:01:01:07"},
      {{30000, 1001}, 29, "00:00:00:29"}, {{30000, 1001}, 30, "00:00:01:00"},
      {{30000, 1001}, 60, "00:00:02:00"}, {{1, 2}, 3, "00:00:06:00"},
  };
  for (const auto& [rate, number, text] : cases) {
    Track track;
    track.sampleRate = rate;
    EXPECT_EQ(ToTimeCode(track, number), text);
  }
}

TEST(Options, RefusesWhatDoesNotFitTogether) {
  const struct {
    std::vector<const char*> arguments;
    const char* reason;
  } cases[] = {
      {{}, "TRACK"},
      {{"a", "--size", "12"}, "--size 12"},
      {{"a", "--size", "0x5"}, "0x5"},
      {{"a", "--size", "99999x5"}, "8192"},
      {{"a", "--format", "V210"}, "I420"},
      {{"a", "--order", "sideways"}, "reverse"},
      {{"a", "--log-level", "loud"}, "warning"},
      {{"a", "--start", "-1"}, "--start"},
      {{"a", "--start", "nan"}, "--start"},
      {{"a", "--count", "0"}, "--count"},
      {{"a", "--count", "2", "--duration", "1"}, "--count"},
      {{"a", "--jobs", "0"}, "--jobs"},
      {{"a", "--window", "x"}, "--window"},
      {{"a", "--unknown"}, "--unknown"},
      {{"host:0:T1"}, "port"},
      {{"a", "--y4m", "-", "--json"}, "--json"},
      {{"a", "--y4m", "-", "--format", "I422"}, "I420"},
      {{"a", "--y4m", "-", "--size", "8x8", "--size", "4x4"}, "--size"},
      {{"a", "b", "--y4m", "-"}, "TRACK"},
  };
  for (const auto& test : cases) {
    std::vector<const char*> argv = {"moravel-play"};
    argv.insert(argv.end(), test.arguments.begin(), test.arguments.end());
    try {
      ParseOptions(static_cast<int>(argv.size()), argv.data());
      ADD_FAILURE() << "accepted: " << ::testing::PrintToString(test.arguments);
    } catch (const UsageError& error) {
      EXPECT_THAT(error.what(), HasSubstr(test.reason));
    }
  }
}

TEST(Options, TakesSizesLargestFirstAndOnce) {
  const char* argv[] = {"moravel-play", "--size",   "320x180", "--size",     "640x360", "a",
                        "--size",       "320x180",  "b",       "--duration", "2.5",     "--order",
                        "random",       "--format", "BGRA"};
  const auto options = std::get<Options>(ParseOptions(static_cast<int>(std::size(argv)), argv));
  EXPECT_EQ(options.sizes, (std::vector<Size>{{640, 360}, {320, 180}}));
  EXPECT_EQ(options.tracks.size(), 2u);
  EXPECT_EQ(options.durationSeconds, 2.5);
  EXPECT_EQ(options.order, Order::Random);
  EXPECT_EQ(options.format, qel::FourCC_BGRA);
}

}  // namespace
}  // namespace Moravel::Play
