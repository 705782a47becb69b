#pragma once

#include <cstdint>
#include <vector>

#include "qel/MediaTime.h"

namespace qel {

// When samples are shown, from 0 on: samples of equal duration that follow each other are kept as
// one run. A value; any number of threads may read one.
class SampleTimes {
 public:
  struct Run {
    int64_t first;     // sample
    int64_t start;     // its time
    int64_t duration;  // of each
  };

  // Appends samples that last so long, 0 included. What is behind the end of all times has none.
  void Add(int64_t count, int64_t duration);
  // The last sample lasts so much longer.
  void Extend(int64_t duration);

  int64_t Count() const { return count_; }
  // Also of the sample behind the last one: where the last one ends.
  int64_t Start(int64_t number) const;
  int64_t Duration(int64_t number) const { return Start(number + 1) - Start(number); }
  // The sample whose interval contains the time; -1 outside of all.
  int64_t Find(int64_t time) const;

  const std::vector<Run>& Runs() const { return runs_; }
  int64_t RunEnd(size_t run) const {
    return run + 1 < runs_.size() ? runs_[run + 1].first : count_;
  }
  int64_t MemoryBytes() const { return static_cast<int64_t>(runs_.capacity() * sizeof(Run)); }

 private:
  int64_t count_ = 0;
  int64_t end_ = 0;
  std::vector<Run> runs_;
};

// Times in units of a rate.
struct RatedTimes {
  SampleTimes times;
  EditRate timeRate{25, 1};     // units of `times` a second, reduced
  EditRate nominalRate{25, 1};  // what the samples a second are called
  bool isVariable = false;      // not every sample has its own number as its time
};

// What rate the times of a file stand for, whose units are `unitsNumerator` / `unitsDenominator` a
// second. Times that stray from a constant rate, or from its multiples, by no more than what
// rounding to those units or to milliseconds does are that rate, whichever way they were rounded.
// Throws QELRuntimeError for a rate that cannot be.
RatedTimes SettleRate(const SampleTimes& times, int64_t unitsNumerator, int64_t unitsDenominator);

}  // namespace qel
