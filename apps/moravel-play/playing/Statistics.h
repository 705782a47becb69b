#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <mutex>
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

// Adds up the time that something takes. Any thread may add and read.
class TimeSum {
 public:
  void Add(Clock::duration time) { sum_ += time.count(); }
  double Seconds() const { return std::chrono::duration<double>(Clock::duration(sum_)).count(); }

 private:
  std::atomic<Clock::duration::rep> sum_ = 0;
};

// Adds the time that it lives.
class Timed {
 public:
  explicit Timed(TimeSum& sum, TimeSum* other = nullptr) : sum_(sum), other_(other) {}
  ~Timed() {
    const Clock::duration time = Clock::now() - start_;
    sum_.Add(time);
    if (other_ != nullptr)
      other_->Add(time);
  }
  Timed(const Timed&) = delete;
  Timed& operator=(const Timed&) = delete;

 private:
  TimeSum& sum_;
  TimeSum* const other_;
  const Clock::time_point start_ = Clock::now();
};

// Where the connections to one server spent their time.
struct ServerStatistics {
  std::atomic<int> connections = 0;
  TimeSum asking;   // opening tracks and waiting for samples
  TimeSum waiting;  // for room, as enough samples were there
  TimeSum pausing;  // after failures
};

// Where the decode workers spent their time; the rest they waited for samples.
struct WorkerStatistics {
  TimeSum decoding;
  TimeSum writing;
};

// The connections that may serve a track: its own one, or at random all of its lane.
struct ServingConnections {
  int count = 1;
  TimeSum asking;  // and pausing after failures
};

// How much time had been spent until then, by all that a track shares with others.
struct Moment {
  Clock::time_point time;
  double asking = 0;
  double decoding = 0;
  double writing = 0;
};

// What became of one track. The counters may be read at any time, the rest when the threads that
// write it have ended.
struct TrackStatistics {
  explicit TrackStatistics(size_t sizeCount) : sizes(sizeCount) {}

  // Written by the threads that preload; those from the latency on under the lock.
  std::atomic<int64_t> preloaded = 0;
  std::atomic<int64_t> missing = 0;  // nothing at that time, or never asked for after failures
  std::atomic<int64_t> errors = 0;   // orders that failed
  std::atomic<int64_t> dropped = 0;  // not ordered, as their time had passed
  std::atomic<int64_t> bytes = 0;
  TimeSum asking;  // from orders to answers
  std::mutex ordersAccess;
  LatencyHistogram latency;
  std::optional<Moment> begin;  // the first order
  Moment end;                   // the last answer, or picture

  // Written by the decode workers.
  std::atomic<int64_t> samplesDone = 0;    // whatever became of them
  std::atomic<int64_t> samplesPlayed = 0;  // of these, such as came and were not dropped
  std::atomic<int64_t> playTicks = 0;      // that those last
  std::atomic<int64_t> late = 0;           // pictures that came after their time
  TimeSum decoding;
  std::deque<SizeStatistics> sizes;  // as the track's sizes

  Losses losses;
};

}  // namespace Moravel::Play
