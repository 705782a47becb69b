#include "elements/storage/TrackFacts.h"

#include <cstdio>

namespace qel {

namespace {

// With the numbers that drop-frame time code passes over: the first two of 60 (four of 120, ...) at
// the start of every minute but each tenth.
int64_t WithDropped(int64_t frame, int64_t framesPerSecond) {
  const int64_t dropped = framesPerSecond / 15;
  const int64_t minute = 60 * framesPerSecond - dropped;
  const int64_t tenMinutes = 10 * minute + dropped;
  const int64_t tens = frame / tenMinutes;
  const int64_t rest = frame % tenMinutes;
  const int64_t minutes = rest < 60 * framesPerSecond ? 0 : (rest - dropped) / minute;
  return frame + dropped * (9 * tens + minutes);
}

}  // namespace

std::optional<Timecode> Timecode::FromParts(int64_t hours, int64_t minutes, int64_t seconds,
                                            int64_t frame, bool isDropFrame, const EditRate& rate) {
  constexpr int64_t kMostFrames = 960;
  if (rate._denominator == 0)
    return std::nullopt;
  const int64_t perSecond = (int64_t{rate._numerator} + rate._denominator / 2) / rate._denominator;
  if (hours > 23 || minutes > 59 || seconds > 59 || frame >= perSecond || perSecond > kMostFrames)
    return std::nullopt;
  const int64_t allMinutes = 60 * hours + minutes;
  const int64_t dropped = isDropFrame ? perSecond / 15 * (allMinutes - allMinutes / 10) : 0;
  return Timecode{(60 * allMinutes + seconds) * perSecond + frame - dropped,
                  static_cast<int>(perSecond), isDropFrame};
}

std::string Timecode::Text(int64_t later) const {
  const int64_t rate = framesPerSecond;
  const int64_t dropped = isDropFrame ? 9 * 144 * (rate / 15) : 0;
  const int64_t day = 24 * 3600 * rate - dropped;
  int64_t count = (frame % day + later % day) % day;
  count = count < 0 ? count + day : count;
  if (isDropFrame)
    count = WithDropped(count, rate);
  const auto part = [&](int64_t unit, int64_t parts) {
    return static_cast<int>(count / unit % parts);
  };
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d%c%02d", part(3600 * rate, 24),
                part(60 * rate, 60), part(rate, 60), isDropFrame ? ';' : ':', part(1, rate));
  return text;
}

}  // namespace qel
