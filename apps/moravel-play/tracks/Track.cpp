#include "tracks/Track.h"

#include <cstdio>

namespace Moravel::Play {

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
