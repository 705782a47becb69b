#include "Track.h"

#include <cstdio>

namespace Moravel::Play {

std::string ToTimeCode(const Track& track, int64_t sampleNumber) {
  const int64_t num = track.sampleRate.Numerator();
  const int64_t den = track.sampleRate.Denominator();
  const int64_t seconds = sampleNumber * den / num;
  const int64_t firstOfSecond = (seconds * num + den - 1) / den;
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

}  // namespace Moravel::Play
