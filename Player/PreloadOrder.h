#pragma once

#include <cstdint>

#include "Player/CacheUpdateQueue.h"
#include "Player/SampleRate.h"
#include "Player/TrackId.h"
#include "Time/TimePoint.h"
#include "qel/Export.h"

namespace Moravel::Player {

// Bring the compressed sample of a track at a time into a cache update queue.
class QEL_API PreloadOrder {
 public:
  PreloadOrder(const Time::TimePoint& tp, const SampleRate& s, CacheUpdateQueue* queue,
               const TrackId& id);
  virtual ~PreloadOrder();

  void Set(const Time::TimePoint& tp, const SampleRate& s, CacheUpdateQueue* queue,
           const TrackId& id);

  // For the host's own scheduling; the preloader serves orders as they are given to it.
  void SetPriority(int32_t priority) { priority_ = priority; }
  int32_t Priority() const { return priority_; }

  // Equal when all fields are.
  bool operator==(const PreloadOrder& other) const;
  // An order for a host's sorted queue: by falling priority, then by time, then by the rest, so
  // that of two orders neither is less only when they are equal.
  bool operator<(const PreloadOrder& other) const;

  Time::TimePoint tp_;
  SampleRate s_;
  CacheUpdateQueue* queue_ = nullptr;  // not owned; may be null
  TrackId id_;
  int32_t priority_ = 0;
};

}  // namespace Moravel::Player
