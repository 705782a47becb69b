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
  for (const char* id : {"127.0.0.1:8080:T7", "storage-3.example.org:80:T0", "[::1]:65535:T12"})
    EXPECT_EQ(ParseTrackArgument(id).remoteId.value().ToString(), id);
  for (const char* file : {"clip.avi", "./host:80:T1", "host:80:Tx", "host:80", "host:80:T1.avi"})
    EXPECT_FALSE(ParseTrackArgument(file).remoteId) << file;
  EXPECT_EQ(ParseTrackArgument("[::1]:80:T1").remoteId->StorageId().Address(), "::1");
}

TEST(TrackArgument, RefusesWhatIsOutOfRange) {
  for (const char* text : {"host:0:T1", "host:65536:T1", "host:99999999999999999999:T1",
                           "host:80:T99999999999999999999", "::1:80:T1"})
    EXPECT_THROW(ParseTrackArgument(text), UsageError) << text;
}

TEST(PlaySequence, PlaysEachSampleOnce) {
  for (const Order order : {Order::Forward, Order::Reverse, Order::Random}) {
    for (const int64_t count : {1, 2, 3, 7, 64, 1000}) {
      const PlaySequence sequence(40, count, order);
      std::set<int64_t> numbers;
      for (int64_t position = 0; position < count; ++position)
        numbers.insert(sequence.SampleAt(position));
      EXPECT_EQ(numbers.size(), static_cast<size_t>(count));
      EXPECT_EQ(std::pair(*numbers.begin(), *numbers.rbegin()), std::pair(int64_t{40}, 39 + count));
    }
  }
  EXPECT_EQ(PlaySequence(40, 10, Order::Reverse).SampleAt(0), 49);
}

TEST(PlaySequence, RandomOrderJumps) {
  const PlaySequence sequence(0, 1000, Order::Random);
  int neighbours = 0;
  for (int64_t position = 1; position < 1000; ++position)
    neighbours += std::abs(sequence.SampleAt(position) - sequence.SampleAt(position - 1)) < 10;
  EXPECT_LT(neighbours, 100);
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
  const std::tuple<Player::SampleRate, int64_t, const char*> cases[] = {
      {{25, 1}, 24, "00:00:00:24"},       {{25, 1}, 90'061 * 25 + 7, "25:01:01:07"},
      {{30000, 1001}, 29, "00:00:00:29"}, {{30000, 1001}, 30, "00:00:01:00"},
      {{30000, 1001}, 60, "00:00:02:00"}, {{1, 2}, 3, "00:00:06:00"}};
  for (const auto& [rate, number, text] : cases) {
    Track track;
    track.sampleRate = rate;
    EXPECT_EQ(ToTimeCode(track, number), text);
  }
}

auto Parse(std::vector<const char*> arguments) {
  arguments.insert(arguments.begin(), "moravel-play");
  return ParseOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(Options, RefusesWhatDoesNotFitTogether) {
  const struct {
    std::vector<const char*> arguments;
    const char* reason;
  } cases[] = {
      {{"a", "--size", "0x5"}, "--size 0x5"},
      {{"a", "--size", "99999x5"}, "8192"},
      {{"a", "--format", "V210"}, "I420"},
      {{"a", "--order", "sideways"}, "reverse"},
      {{"a", "--log-level", "loud"}, "warning"},
      {{"a", "--start", "nan"}, "--start"},
      {{"a", "--count", "0"}, "--count"},
      {{"a", "--jobs", "0"}, "--jobs"},
      {{"a", "--count", "2", "--duration", "1"}, "--count"},
      {{"a", "--y4m", "-", "--json"}, "--json"},
      {{"a", "--y4m", "-", "--format", "I422"}, "I420"},
      {{"a", "--y4m", "-", "--size", "8x8", "--size", "4x4"}, "--size"},
      {{"a", "b", "--y4m", "-"}, "TRACK"},
  };
  for (const auto& test : cases) {
    try {
      Parse(test.arguments);
      ADD_FAILURE() << "accepted: " << ::testing::PrintToString(test.arguments);
    } catch (const UsageError& error) {
      EXPECT_THAT(error.what(), HasSubstr(test.reason));
    }
  }
}

TEST(Options, TakesSizesLargestFirstAndOnce) {
  const auto options = std::get<Options>(Parse({"--size", "320x180", "--size", "640x360", "a",
                                                "--size", "320x180", "b", "--order", "random"}));
  EXPECT_EQ(options.sizes, (std::vector<Size>{{640, 360}, {320, 180}}));
  EXPECT_EQ(options.tracks.size(), 2u);
  EXPECT_EQ(options.order, Order::Random);
}

}  // namespace
}  // namespace Moravel::Play
