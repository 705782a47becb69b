#pragma once

#include "Time/TimePoint.h"

namespace Moravel::Player {

// Samples per second: numerator / denominator. Of interlaced material a sample is a frame of two
// fields, unless something says that it means fields.
class SampleRate : public Time::Ratio {
 public:
  using Time::Ratio::Ratio;
};

}  // namespace Moravel::Player
