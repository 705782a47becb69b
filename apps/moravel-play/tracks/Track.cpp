#include "tracks/Track.h"

#include <cstdio>

namespace Moravel::Play {

std::string ToTimeCode(const Track& track, int64_t sampleNumber) {
  const Time::Ratio oncePerSecond(1, 1);
  const int64_t seconds = track.TimeOf(sampleNumber).SampleNumber(oncePerSecond);
  const auto begin = Time::TimePoint().FromRatio(static_cast<uint64_t>(seconds), 1, 1);
  int64_t firstOfSecond = begin.SampleNumber(track.sampleRate);
  if (track.TimeOf(firstOfSecond) < begin)
    ++firstOfSecond;
  char text[64];
  std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld:%02lld",
                static_cast<long long>(seconds / 3600), static_cast<long long>(seconds / 60 % 60),
                static_cast<long long>(seconds % 60),
                static_cast<long long>(sampleNumber - firstOfSecond));
  return text;
}

std::string ToRateText(const Player::SampleRate& rate) {
  char text[32];
  std::snprintf(text, sizeof text, "%.5g fps",
                static_cast<double>(rate.Numerator()) / static_cast<double>(rate.Denominator()));
  return text;
}

std::string ReasonOf(const std::exception& error, const Player::TrackId& id) {
  const std::string reason = error.what();
  const std::string prefix = "track " + id.ToString() + ": ";
  return reason.starts_with(prefix) ? reason.substr(prefix.size()) : reason;
}

}  // namespace Moravel::Play
