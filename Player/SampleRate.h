#pragma once

#include "Time/TimePoint.h"

namespace Moravel::Player {

// Samples per second: numerator / denominator.
class SampleRate : public Time::Ratio {
 public:
  using Time::Ratio::Ratio;
};

}  // namespace Moravel::Player
