#pragma once

#include "Time/TimePoint.h"
#include "qel/Export.h"

namespace Moravel::Player {

class ISample;

// What a preload order brings: a sample, or none at that time. The sample travels with the record:
// whoever accepts the record owns it. Destroying a record leaves its sample alone.
struct QEL_API Output {
  ISample* sample_ = nullptr;
  Time::TimePoint tp_;
};

// Takes the results of preload orders to a cache of the host. Called from any thread.
class QEL_API CacheUpdateQueue {
 public:
  virtual ~CacheUpdateQueue() = default;

  // Accepts the record, and with it the sample; when it throws, it has accepted nothing.
  virtual void Push(const Output& output) = 0;
};

// The host's registry of live queues. Called from any thread.
class QEL_API ExistingCacheUpdateQueues {
 public:
  virtual ~ExistingCacheUpdateQueues() = default;

  virtual bool Exists(CacheUpdateQueue* queue) = 0;
  // True when the queue is live and took the record.
  virtual bool PushIfExists(CacheUpdateQueue* queue, const Output& output) = 0;
};

}  // namespace Moravel::Player
