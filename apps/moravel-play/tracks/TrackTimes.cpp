#include "tracks/TrackTimes.h"

#include <algorithm>

#include "command/UsageError.h"

namespace Moravel::Play {

namespace {

constexpr uint64_t kMicroseconds = 1'000'000;

Time::TimePoint TimeOfMicroseconds(int64_t microseconds) {
  return Time::TimePoint().FromRatio(static_cast<uint64_t>(microseconds), 1, kMicroseconds);
}

int64_t FirstSampleFrom(const Time::TimePoint& time, const Track& track) {
  const int64_t shown = track.SampleAt(time);
  return track.TimeOf(shown) < time ? shown + 1 : shown;
}

int64_t SampleOfTimeCode(const TimeArgument& time, const Track& track) {
  const Player::SampleRate& rate = track.sampleRate;
  const int64_t picturesInSecond = (rate.Numerator() + rate.Denominator() - 1) / rate.Denominator();
  if (time.samples >= picturesInSecond) {
    throw UsageError(time.ToString() + ": a second of this track has " +
                     std::to_string(picturesInSecond) + " pictures, 0 to " +
                     std::to_string(picturesInSecond - 1));
  }
  return FirstSampleFrom(TimeOfMicroseconds(time.microseconds), track) + time.samples;
}

}  // namespace

int64_t SampleOf(const TimeArgument& start, const Track& track) {
  int64_t sample = start.samples;
  if (start.form == TimeArgument::Form::TimeCode)
    sample = SampleOfTimeCode(start, track);
  if (start.form == TimeArgument::Form::Seconds) {
    const Time::TimePoint time = TimeOfMicroseconds(start.microseconds);
    if (!start.fromEnd)
      return track.SampleAt(time);
    const Time::TimePoint end = track.TimeOf(track.sampleCount);
    return end > time ? track.SampleAt(end - time) : 0;
  }
  return start.fromEnd ? std::max<int64_t>(0, track.sampleCount - sample) : sample;
}

int64_t SamplesIn(const TimeArgument& duration, const Track& track, int64_t first) {
  if (duration.fromEnd)
    throw UsageError("--duration " + duration.ToString() + ": must not be negative");
  int64_t samples = duration.samples;
  if (duration.form == TimeArgument::Form::TimeCode)
    samples = SampleOfTimeCode(duration, track);
  if (duration.form == TimeArgument::Form::Seconds && track.IsVariableRate()) {
    const Time::TimePoint end = track.TimeOf(first) + TimeOfMicroseconds(duration.microseconds);
    samples = FirstSampleFrom(end, track) - first;
  } else if (duration.form == TimeArgument::Form::Seconds) {
    const Player::SampleRate twice(track.sampleRate.Numerator() * 2,
                                   track.sampleRate.Denominator());
    samples = (TimeOfMicroseconds(duration.microseconds).SampleNumber(twice) + 1) / 2;
  }
  return std::max<int64_t>(1, samples);
}

std::string ToTimeCode(const Track& track, int64_t sampleNumber) {
  if (track.IsVariableRate()) {
    const Time::TimePoint time = track.TimeOf(sampleNumber);
    int64_t shown = time.SampleNumber(Time::Ratio(kMicroseconds, 1));
    shown += TimeOfMicroseconds(shown) < time ? 1 : 0;
    return TimeArgument{.microseconds = shown}.ToString();
  }
  const int64_t seconds = track.TimeOf(sampleNumber).SampleNumber(Time::Ratio(1, 1));
  const int64_t microseconds = seconds * int64_t{kMicroseconds};
  const int64_t first = FirstSampleFrom(TimeOfMicroseconds(microseconds), track);
  return TimeArgument{.form = TimeArgument::Form::TimeCode,
                      .microseconds = microseconds,
                      .samples = sampleNumber - first}
      .ToString();
}

}  // namespace Moravel::Play
