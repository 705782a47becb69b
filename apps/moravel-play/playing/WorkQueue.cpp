#include "playing/WorkQueue.h"

namespace Moravel::Play {

void WorkQueue::Push(const Task& task) {
  {
    const std::lock_guard<std::mutex> lock(tasksAccess_);
    Coming& coming = coming_[task.job.track];
    coming.early.emplace(task.job.position, task);
    while (!coming.early.empty() && coming.early.begin()->first == coming.next) {
      tasks_.push_back(coming.early.begin()->second);
      coming.early.erase(coming.early.begin());
      ++coming.next;
    }
  }
  changed_.notify_all();
}

void WorkQueue::ProducerDone() {
  {
    const std::lock_guard<std::mutex> lock(tasksAccess_);
    --producers_;
  }
  changed_.notify_all();
}

std::optional<Task> WorkQueue::Pop(std::stop_token stop) {
  std::unique_lock<std::mutex> lock(tasksAccess_);
  changed_.wait(lock, stop, [this] { return !tasks_.empty() || producers_ == 0; });
  if (stop.stop_requested() || tasks_.empty())
    return std::nullopt;
  const Task task = tasks_.front();
  tasks_.pop_front();
  return task;
}

}  // namespace Moravel::Play
