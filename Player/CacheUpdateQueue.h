#pragma once

#include "Player/ISample.h"
#include "Time/TimePoint.h"
#include "qel/Export.h"

namespace Moravel::Player {

// What a preload order brings: a sample, or none at that time. The sample travels with the record:
// whoever accepts the record owns it. Destroying a record leaves its sample alone.
//
// A record does not name its track: a host has a queue for each.
struct QEL_API Output {
  ISample* sample_ = nullptr;  // null: nothing is stored at that time
  Time::TimePoint tp_;         // the order's time, which lies within the sample's interval
};

// Takes the results of preload orders to a cache of the host. Called on the thread that preloads,
// while the preloader holds its lock: it takes the record over and returns, and calls no operation
// of that preloader.
class QEL_API CacheUpdateQueue {
 public:
  virtual ~CacheUpdateQueue() = default;

  // Accepts the record, and with it the sample; when it throws, it has accepted nothing.
  virtual void Push(const Output& output) = 0;
};

// The host's registry of live queues, called on the threads that preload. A queue that is not there
// any more is never called: its orders end without it, and what they read is destroyed.
class QEL_API ExistingCacheUpdateQueues {
 public:
  virtual ~ExistingCacheUpdateQueues() = default;

  // Whether the queue is live, asked before anything is read for it.
  virtual bool Exists(CacheUpdateQueue* queue) = 0;
  // Pushes to the queue unless it has gone, and keeps it from going meanwhile. True when the queue
  // is live and took the record.
  virtual bool PushIfExists(CacheUpdateQueue* queue, const Output& output) = 0;
};

}  // namespace Moravel::Player
