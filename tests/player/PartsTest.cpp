#include <gmock/gmock.h>

#include <deque>
#include <set>

#include "command/Options.h"
#include "host/LiveQueues.h"
#include "playing/FailuresInARow.h"
#include "playing/Losses.h"
#include "playing/OrderSchedule.h"
#include "playing/Statistics.h"
#include "qelCore/Printable.h"
#include "report/Verdict.h"
#include "sinks/VisualText.h"
#include "tracks/PlaySequence.h"
#include "tracks/TrackTimes.h"

namespace Moravel::Play {
namespace {

using ::testing::HasSubstr;

TEST(TrackArgument, IsATrackIdOrAFile) {
  const std::pair<const char*, const char*> ids[] = {
      {"127.0.0.1:8080:T7", "127.0.0.1:8080:T7"},
      {"storage-3.example.org:80:T0", "storage-3.example.org:80:T0"},
      {"[::1]:65535:T12", "[::1]:65535:T12"},
      {"http://10.0.0.5:8080/tracks/7", "10.0.0.5:8080:T7"},
      {"[fe80::1%eth0]:80:T1", "[fe80::1%eth0]:80:T1"},
      {"http://[fe80::1%25en-1]/tracks/9223372036854775807",
       "[fe80::1%en-1]:80:T9223372036854775807"}};
  for (const auto& [text, id] : ids)
    EXPECT_EQ(ParseTrackArgument(text).remoteId.value().ToString(), id);
  for (const char* file :
       {"clip.avi", "./host:80:T1", "host:80:Tx", "host:80:T1.avi", "a:b:T1", "[::1%]:80:T1"})
    EXPECT_FALSE(ParseTrackArgument(file).remoteId) << file;
  for (const char* text :
       {"", "host:0:T1", "host:65536:T1", "h:80:T99999999999999999999", "::1:80:T1", "http://h:1",
        "http://h:1/tracks/", "http://h:1/7", "http://:1/tracks/7", "http://h:/tracks/7",
        "http://h:70000/tracks/7", "http://u@h/tracks/7", "https://h/tracks/7"})
    EXPECT_THROW(ParseTrackArgument(text), UsageError) << text;
}

TEST(FailuresInARow, AreHopelessWhenTheyAreManyOrLong) {
  using std::chrono::seconds;
  const std::tuple<int, seconds, bool> cases[] = {{9, seconds(0), false},  {10, seconds(0), true},
                                                  {2, seconds(10), false}, {3, seconds(10), true},
                                                  {1, seconds(99), false}, {2, seconds(99), true}};
  for (const auto& [count, each, areHopeless] : cases) {
    FailuresInARow failures;
    for (int i = 0; i < count; ++i)
      failures.Add(each);
    EXPECT_EQ(failures.AreHopeless(), areHopeless) << count;
  }
}

TEST(Printable, HasNoControlCharacters) {
  const std::pair<std::string, std::string> cases[] = {
      {"clip \u00e9\u4e2d\U0001f3ac.avi", "clip \u00e9\u4e2d\U0001f3ac.avi"},
      {"a\x1b[31m\r\n\x7f", R"(a\x1b[31m\x0d\x0a\x7f)"},
      {"a\xc2\x9b"
       "b",
       R"(a\xc2\x9bb)"},                            // C1
      {"\x9b\xff\xe4\xb8", R"(\x9b\xff\xe4\xb8)"},  // no UTF-8
      {"\xc0\x9b\xe0\x82\x9b\xed\xa0\x80",
       R"(\xc0\x9b\xe0\x82\x9b\xed\xa0\x80)"},  // too long forms, a surrogate
      {"a\u202eb\u2069\u2028", R"(a\xe2\x80\xaeb\xe2\x81\xa9\xe2\x80\xa8)"}};
  for (const auto& [text, printable] : cases)
    EXPECT_EQ(qel::Printable(text), printable);
}

TEST(VisualText, TurnsAndJoinsWhatIsReadFromTheRight) {
  const std::pair<std::string, std::string> cases[] = {
      {"clip \u00e9\u4e2d\U0001f3ac.avi", "clip \u00e9\u4e2d\U0001f3ac.avi"},
      {"\u05d0\u05d1 12.avi", "12 \u05d1\u05d0.avi"},
      {"\u0644\u0627\u0628", "\ufe8f\ufefb"}};  // a ligature, and a letter that stands alone
  for (const auto& [text, shown] : cases)
    EXPECT_EQ(ToVisualOrder(text), shown);
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

TEST(SampleRanges, JoinWhatTouches) {
  SampleRanges ranges;
  for (const auto& [first, last] : {std::pair(5, 6), {1, 1}, {9, 12}, {7, 8}, {11, 20}, {3, 3}})
    ranges.Add(first, last);
  EXPECT_EQ(ranges.List(), (std::vector<SampleRanges::Range>{{1, 1}, {3, 3}, {5, 20}}));
  ranges.Add(0, 30);
  EXPECT_EQ(ranges.List(), (std::vector<SampleRanges::Range>{{0, 30}}));
}

TEST(LiveQueues, PushToTheLivingAlone) {
  struct Queue : Player::CacheUpdateQueue {
    void Push(const Player::Output&) override { ++pushes; }
    int pushes = 0;
  } queue;
  Player::LiveQueues queues;
  for (const bool lives : {false, true, false}) {
    lives ? queues.Add(&queue) : queues.Remove(&queue);
    EXPECT_EQ(queues.Exists(&queue), lives);
    EXPECT_EQ(queues.PushIfExists(&queue, {}), lives);
  }
  EXPECT_EQ(queue.pushes, 1);
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

Track TrackOf(const Player::SampleRate& rate, int64_t samples) {
  Track track;
  track.sampleRate = rate;
  track.sampleCount = samples;
  return track;
}

TEST(OrderSchedule, KeepsTracksInStepEachInItsOwnTime) {
  Track facts[] = {TrackOf({25, 1}, 100), TrackOf({50, 1}, 100)};
  OrderSchedule schedule({.waitingBytes = 1}, 1);
  std::deque<PlayingTrack> tracks;
  for (Track& each : facts) {
    each.sequence = PlaySequence(0, 100, Order::Forward);
    schedule.Add(0, std::nullopt, 100, tracks.emplace_back(each, nullptr, nullptr));
  }
  for (int order = 0; order < 30; ++order)
    EXPECT_TRUE(schedule.Next(0, 0, OrderSchedule::Patience::DoNotWait, {}));
  EXPECT_EQ(tracks[0].ordering.next, 10);
  EXPECT_EQ(tracks[1].ordering.next, 20);
}

TEST(OrderSchedule, StartsTheClockWithTheFirstPictureWhicheverIsDecodedFirst) {
  const Track facts = TrackOf({1, 1}, 10);
  PlayingTrack track(facts, nullptr, nullptr);
  OrderSchedule schedule({.waitingBytes = 1, .realtime = true}, 1);
  for (const int64_t position : {1, 0})
    EXPECT_EQ(schedule.Lateness({.track = &track, .position = position}), Clock::duration());
}

TEST(Verdict, NamesWhatHeldTheTrackUp) {
  using std::chrono::seconds;
  const struct {
    int samples, asking, decoding, writing;  // seconds of two connections and two workers in 10
    bool realtime;
    int late, dropped;
    const char* text;
  } cases[] = {
      {0, 0, 0, 0, false, 0, 0, "nothing was played"},
      {1, 0, 0, 0, false, 0, 0, "too little was played to tell how fast"},
      {500, 20, 1, 1, false, 0, 0, "plays at 25 fps with 2.0 times the speed needed"},
      {88, 19, 2, 1, false, 0, 0,
       "too slow: 8.8 of 25 fps; the server is the limit (95 % of the time waiting for it)"},
      {249, 19, 2, 1, false, 0, 0,
       "too slow: 24.9 of 25 fps; the server is the limit (95 % of the time waiting for it)"},
      {88, 2, 18, 1, false, 0, 0,
       "too slow: 8.8 of 25 fps; decoding is the limit (90 % of the time of 2 workers)"},
      {88, 2, 4, 15, false, 0, 0,
       "too slow: 8.8 of 25 fps; writing is the limit (75 % of the time of 2 workers)"},
      {250, 2, 4, 3, true, 0, 0, "plays at 25 fps: all pictures on time"},
      {250, 2, 18, 0, true, 3, 4,
       "does not play at 25 fps: 7 pictures late, 4 of them dropped; "
       "decoding is the limit (90 % of the time of 2 workers)"},
  };
  for (const auto& test : cases) {
    const auto connections = std::make_shared<ServingConnections>();
    connections->count = 2;
    PlayingTrack track(TrackOf({25, 1}, 1000), nullptr, connections);
    const Clock::time_point start = Clock::now();
    track.statistics.begin = {start, 30, 40, 50};  // spent before, on other tracks
    Extend(track.statistics,
           {start + seconds(10), 30.0 + test.asking, 40.0 + test.decoding, 50.0 + test.writing});
    track.statistics.samplesPlayed = test.samples - test.dropped;
    track.statistics.playTicks =
        Time::TimePoint::kTicksPerSecond / 25 * (test.samples - test.dropped);
    track.statistics.late = test.late;
    track.statistics.dropped = test.dropped;
    EXPECT_EQ(Judge(track, 2, test.realtime).text, test.text);
  }
}

TEST(TimeArgument, NamesASampleAndALength) {
  const Player::SampleRate pal(25, 1), ntsc(30000, 1001), slow(1, 2);
  const struct {
    const char* text;
    Player::SampleRate rate;
    int64_t start, length;
    const char* canonical = nullptr;  // where it is not the text
  } cases[] = {
      {"0", pal, 0, 1},
      {"62.5", pal, 1562, 1563},
      {"62.5s", pal, 1562, 1563, "62.5"},
      {"1:02.5", pal, 1562, 1563, "62.5"},
      {"0:01:02.5", pal, 1562, 1563, "62.5"},
      {".04", pal, 1, 1, "0.04"},
      {"00:01:02:12", pal, 1562, 1562},
      {"27:00:00:00", pal, 27 * 90'000, 27 * 90'000},
      {"#137", pal, 137, 137},
      {"1", ntsc, 29, 30},
      {"00:00:01:00", ntsc, 30, 30},
      {"6", slow, 3, 3},
      {"-2s", pal, 1950, 0, "-2"},
      {"-2", ntsc, 1940, 0},
      {"-#50", pal, 1950, 0},
      {"-00:00:02:05", pal, 1945, 0},
      {"-100", pal, 0, 0},
  };
  for (const auto& test : cases) {
    const Track track = TrackOf(test.rate, 2000);
    const TimeArgument time = ParseTimeArgument("--start", test.text);
    EXPECT_EQ(SampleOf(time, track), test.start) << test.text;
    EXPECT_EQ(time.ToString(), test.canonical != nullptr ? test.canonical : test.text);
    EXPECT_EQ(ParseTimeArgument("", time.ToString()), time);
    if (time.fromEnd)
      EXPECT_THROW(SamplesIn(time, track), UsageError) << test.text;
    else
      EXPECT_EQ(SamplesIn(time, track), test.length) << test.text;
  }
  for (const char* text : {"", "nan", "1e3", "-", "#", "#-1", "+1", "1:60", "1:-2", "61:61:00", ".",
                           "1.", "1:2:3:4:5", "1:2:3.5:4", "10000000000", "1 ", "0x10", "--1"})
    EXPECT_THROW(ParseTimeArgument("--start", text), UsageError) << text;
  EXPECT_THROW(SampleOf(ParseTimeArgument("", "0:0:0:25"), TrackOf(pal, 100)), UsageError);
}

TEST(TimeCode, IsWhatAStartTakes) {
  const std::tuple<Player::SampleRate, int64_t, const char*> cases[] = {
      {{25, 1}, 24, "00:00:00:24"},       {{25, 1}, 90'061 * 25 + 7, "25:01:01:07"},
      {{30000, 1001}, 29, "00:00:00:29"}, {{30000, 1001}, 30, "00:00:01:00"},
      {{30000, 1001}, 60, "00:00:02:00"}, {{1, 2}, 3, "00:00:06:00"}};
  for (const auto& [rate, number, text] : cases) {
    EXPECT_EQ(ToTimeCode(TrackOf(rate, 1), number), text);
    EXPECT_EQ(SampleOf(ParseTimeArgument("", text), TrackOf(rate, 1)), number);
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
      {{"a", "--png", ""}, "--png"},
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
