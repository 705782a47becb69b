#include "host/LiveQueues.h"

namespace Moravel::Player {

void LiveQueues::Add(CacheUpdateQueue* queue) {
  const std::lock_guard<std::mutex> lock(queuesAccess_);
  queues_.insert(queue);
}

void LiveQueues::Remove(CacheUpdateQueue* queue) {
  const std::lock_guard<std::mutex> lock(queuesAccess_);
  queues_.erase(queue);
}

bool LiveQueues::Exists(CacheUpdateQueue* queue) {
  const std::lock_guard<std::mutex> lock(queuesAccess_);
  return queues_.count(queue) != 0;
}

bool LiveQueues::PushIfExists(CacheUpdateQueue* queue, const Output& output) {
  const std::lock_guard<std::mutex> lock(queuesAccess_);
  if (queues_.count(queue) == 0)
    return false;
  queue->Push(output);
  return true;
}

}  // namespace Moravel::Player
