#pragma once

#include <chrono>

namespace Moravel::Play {

// A server that comes back within some seconds costs a few pictures. One that fails so often, or
// for so long however seldom, is given up. Not thread-safe.
class FailuresInARow {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr int kMost = 10;
  static constexpr std::chrono::seconds kLongest{30};

  // What began then has failed.
  void Add(Clock::time_point begin) {
    if (count_++ == 0)
      begin_ = begin;
  }
  int Count() const { return count_; }
  bool AreHopeless(Clock::time_point now) const {
    return count_ >= kMost || (count_ > 1 && now - begin_ >= kLongest);
  }

 private:
  int count_ = 0;
  Clock::time_point begin_;
};

}  // namespace Moravel::Play
