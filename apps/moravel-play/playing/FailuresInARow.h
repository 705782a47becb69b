#pragma once

#include <algorithm>
#include <chrono>

namespace Moravel::Play {

// A server that comes back within some seconds costs a few pictures. One that fails so often, or
// for so long however seldom, is given up. Not thread-safe.
class FailuresInARow {
 public:
  using Duration = std::chrono::steady_clock::duration;
  static constexpr int kMost = 10;
  static constexpr std::chrono::seconds kLongest{30};

  // One that took so long, half the time at most: this process may have been stopped meanwhile.
  void Add(Duration took) {
    ++count_;
    lasted_ += std::min<Duration>(took, kLongest / 2);
  }
  int Count() const { return count_; }
  bool AreHopeless() const { return count_ >= kMost || lasted_ >= kLongest; }

 private:
  int count_ = 0;
  Duration lasted_{};
};

}  // namespace Moravel::Play
