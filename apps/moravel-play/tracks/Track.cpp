#include "tracks/Track.h"

#include <cstdio>
#include <numeric>

namespace Moravel::Play {

namespace {

Time::TimePoint FromUnits(int64_t units, int64_t numerator, int64_t denominator) {
  return Time::TimePoint().FromRatio(static_cast<uint64_t>(units),
                                     static_cast<uint64_t>(denominator),
                                     static_cast<uint64_t>(numerator));
}

Time::TimePoint FromUnits(int64_t units, const Player::SampleRate& rate) {
  return FromUnits(units, rate.Numerator(), rate.Denominator());
}

}  // namespace

bool Track::IsVariableRate() const {
  return stored && (stored->Facts().isVariableRate || stored->Start(sampleCount) != sampleCount);
}

Player::SampleRate Track::AverageRate() const {
  constexpr int64_t kMilliseconds = 1000;
  const int64_t length = TimeOf(sampleCount).SampleNumber({kMilliseconds, 1});
  if (!IsVariableRate() || length == 0)
    return sampleRate;
  const int64_t samples = sampleCount * kMilliseconds;
  const int64_t divisor = std::gcd(samples, length);
  return {samples / divisor, length / divisor};
}

int64_t Track::TicksOf(int64_t sampleNumber) const {
  const Time::TimePoint duration = TimeOf(sampleNumber + 1) - TimeOf(sampleNumber);
  return duration.SampleNumber({Time::TimePoint::kTicksPerSecond, 1});
}

Player::SampleRate Track::OrderRate() const {
  if (!stored)
    return sampleRate;
  const qel::EditRate& rate = stored->Facts().timeRate;
  return {rate._numerator, rate._denominator};
}

Time::TimePoint Track::TimeOf(int64_t sampleNumber) const {
  if (!stored)
    return FromUnits(sampleNumber, sampleRate);
  if (sampleNumber <= sampleCount)
    return FromUnits(stored->Start(sampleNumber), OrderRate());
  return TimeOf(sampleCount) + FromUnits(sampleNumber - sampleCount, sampleRate);
}

int64_t Track::SampleAt(const Time::TimePoint& time) const {
  if (!stored)
    return time.SampleNumber(sampleRate);
  const Time::TimePoint end = TimeOf(sampleCount);
  if (time >= end)
    return sampleCount + (time - end).SampleNumber(sampleRate);
  const Player::SampleRate rate = OrderRate();
  const qel::EditRate editRate(static_cast<uint32_t>(rate.Numerator()),
                               static_cast<uint32_t>(rate.Denominator()));
  return stored->Find(qel::MediaTime(editRate, time.SampleNumber(rate), nullptr)).value_or(0);
}

int64_t Track::BytesOf(int64_t sampleNumber) const {
  return stored && sampleNumber < stored->Count() ? stored->At(sampleNumber).size : 0;
}

std::chrono::microseconds Track::PlayTime(int64_t position) const {
  const auto seconds = [](const Time::TimePoint& from, const Time::TimePoint& to) {
    return std::chrono::microseconds((to - from).SampleNumber({1'000'000, 1}));
  };
  const int64_t first = sequence.SampleAt(0);
  if (position < 0 || !sequence.IsConsecutive()) {
    const auto period = seconds({}, FromUnits(1, AverageRate()));
    return position * period;
  }
  const int64_t number = first + (sequence.IsReverse() ? -position : position);
  return sequence.IsReverse() ? seconds(TimeOf(number + 1), TimeOf(first + 1))
                              : seconds(TimeOf(first), TimeOf(number));
}

std::string ToRateText(const Player::SampleRate& rate) {
  char text[32];
  std::snprintf(text, sizeof text, "%.5g fps",
                static_cast<double>(rate.Numerator()) / static_cast<double>(rate.Denominator()));
  return text;
}

std::string ToRateText(const Track& track) {
  const std::string average = ToRateText(track.AverageRate());
  return track.IsVariableRate() ? "variable, " + average + " on average" : average;
}

std::string ReasonOf(const std::exception& error, const Player::TrackId& id) {
  const std::string reason = error.what();
  const std::string prefix = "track " + id.ToString() + ": ";
  return reason.starts_with(prefix) ? reason.substr(prefix.size()) : reason;
}

}  // namespace Moravel::Play
