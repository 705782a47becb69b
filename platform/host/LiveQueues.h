#pragma once

#include <mutex>
#include <set>

#include "Player/CacheUpdateQueue.h"
#include "qel/Export.h"

namespace Moravel::Player {

// The registry of live cache update queues. A queue is added when it is made and removed before it
// dies; a delivery and a removal exclude each other, so no queue is ever pushed to after Remove
// has returned. Thread-safe.
class QEL_API LiveQueues : public ExistingCacheUpdateQueues {
 public:
  void Add(CacheUpdateQueue* queue);
  void Remove(CacheUpdateQueue* queue);

  bool Exists(CacheUpdateQueue* queue) override;
  bool PushIfExists(CacheUpdateQueue* queue, const Output& output) override;

 private:
  std::mutex queuesAccess_;  // guards queues_, and is held while a queue is pushed to
  std::set<CacheUpdateQueue*> queues_;
};

}  // namespace Moravel::Player
