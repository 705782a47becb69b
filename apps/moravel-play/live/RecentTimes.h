#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "playing/Statistics.h"

namespace Moravel::Play {

// The last times of something. Used by one thread at a time.
class RecentTimes {
 public:
  void Add(Clock::duration time) { times_[count_++ % times_.size()] = time; }

  // What the given share (0 to 1) of them do not exceed, in milliseconds; 0 when there are none.
  double PercentileMilliseconds(double share) const {
    std::vector<Clock::duration> sorted(times_.begin(),
                                        times_.begin() + std::min(count_, times_.size()));
    if (sorted.empty())
      return 0;
    const auto last = static_cast<double>(sorted.size() - 1);
    const auto nth = sorted.begin() + static_cast<std::ptrdiff_t>(std::ceil(share * last));
    std::nth_element(sorted.begin(), nth, sorted.end());
    return std::chrono::duration<double, std::milli>(*nth).count();
  }

 private:
  std::array<Clock::duration, 128> times_ = {};
  size_t count_ = 0;
};

}  // namespace Moravel::Play
