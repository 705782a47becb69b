#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

#include "playing/Losses.h"

namespace Moravel::Play {

using Clock = std::chrono::steady_clock;

// Counts latencies in buckets that are a sixteenth of their value wide: percentiles of any number
// of values within a few percent, in fixed memory. Used by one thread at a time.
class LatencyHistogram {
 public:
  void Add(Clock::duration latency);
  // Milliseconds that the given share (0 to 1) of the latencies do not exceed; 0 when there are
  // none.
  double PercentileMilliseconds(double share) const;

 private:
  static constexpr unsigned kSubBits = 4;
  static constexpr size_t kBuckets = size_t(64) << kSubBits;

  static size_t BucketOf(uint64_t microseconds);
  static uint64_t UpperEnd(size_t bucket);

  std::array<int64_t, kBuckets> counts_ = {};
  int64_t total_ = 0;
};

// Pictures of one size of one track. Written by the decode workers, read by anybody.
struct SizeStatistics {
  std::atomic<int64_t> pictures = 0;  // shown, damaged ones among them
  std::atomic<int64_t> damaged = 0;   // shown or not
};

// What became of one track. The counters may be read at any time, the rest when the threads that
// write it have ended.
struct TrackStatistics {
  explicit TrackStatistics(size_t sizeCount) : sizes(sizeCount) {}

  // Written by the preload thread.
  std::atomic<int64_t> preloaded = 0;
  std::atomic<int64_t> missing = 0;  // nothing at that time, or never asked for after failures
  std::atomic<int64_t> errors = 0;   // orders that failed
  std::atomic<int64_t> bytes = 0;
  LatencyHistogram latency;
  std::optional<Clock::time_point> firstOrder;
  Clock::time_point lastAnswer;

  // Written by the decode workers.
  std::atomic<int64_t> samplesDone = 0;
  std::deque<SizeStatistics> sizes;  // as the track's sizes

  Losses losses;

  double PreloadSeconds() const;
};

}  // namespace Moravel::Play
