#pragma once

#include <cstdint>

#include "command/Options.h"

namespace Moravel::Play {

// The samples of a track in the order in which they are played, each once. Takes no memory for the
// samples, however many. A value; any thread may read it.
class PlaySequence {
 public:
  PlaySequence() = default;
  PlaySequence(int64_t firstSample, int64_t count, Order order);

  int64_t Count() const { return count_; }
  // The sample number at a position from 0 to Count() - 1.
  int64_t SampleAt(int64_t position) const;
  // Whether samples follow each other up or down.
  bool IsConsecutive() const { return order_ != Order::Random; }
  bool IsReverse() const { return order_ == Order::Reverse; }

 private:
  uint64_t Shuffle(uint64_t position) const;

  int64_t firstSample_ = 0;
  int64_t count_ = 0;
  Order order_ = Order::Forward;
  unsigned halfBits_ = 1;
};

}  // namespace Moravel::Play
