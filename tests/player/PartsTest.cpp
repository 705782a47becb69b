#include <gmock/gmock.h>

#include <set>

#include "command/Options.h"
#include "playing/Statistics.h"
#include "tracks/PlaySequence.h"
#include "tracks/Track.h"

namespace Moravel::Play {
namespace {

using ::testing::HasSubstr;

TEST(TrackArgument, IsATrackIdOrAFile) {
  for (const char* id : {"127.0.0.1:8080:T7", "storage-3.example.org:80:T0", "[::1]:65535:T12"})
    EXPECT_EQ(ParseTrackArgument(id).remoteId.value().ToString(), id);
  for (const char* file : {"clip.avi", "./host:80:T1", "host:80:Tx", "host:80:T1.avi"})
    EXPECT_FALSE(ParseTrackArgument(file).remoteId) << file;
  for (const char* text : {"host:0:T1", "host:65536:T1", "h:80:T99999999999999999999", "::1:80:T1"})
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

TEST(Options, RefusesWhatDoesNotFitTogether) {
  const struct {
    std::vector<const char*> arguments;
    const char* reason;
  } cases[] = {
      {{"a", "--size", "99999x5"}, "8192"},
      {{"a", "--format", "V210"}, "I420"},
      {{"a", "--order", "sideways"}, "reverse"},
      {{"a", "--start", "nan"}, "--start"},
      {{"a", "--jobs", "0"}, "--jobs"},
      {{"a", "--count", "2", "--duration", "1"}, "--count"},
      {{"a", "--y4m", "-", "--json"}, "--json"},
      {{"a", "--y4m", "-", "--format", "I422"}, "I420"},
      {{"a", "--y4m", "-", "--size", "8x8", "--size", "4x4"}, "--size"},
      {{"a", "b", "--y4m", "-"}, "TRACK"},
  };
  for (auto [arguments, reason] : cases) {
    arguments.insert(arguments.begin(), "moravel-play");
    EXPECT_THAT([&] { ParseOptions(static_cast<int>(arguments.size()), arguments.data()); },
                ::testing::ThrowsMessage<UsageError>(HasSubstr(reason)));
  }
}

}  // namespace
}  // namespace Moravel::Play
