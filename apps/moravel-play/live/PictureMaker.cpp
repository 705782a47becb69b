#include "live/PictureMaker.h"

#include <algorithm>
#include <utility>

namespace Moravel::Play {

PictureMaker::PictureMaker(int threads, Watcher watcher) : watcher_(std::move(watcher)) {
  for (int i = 0; i < threads; ++i)
    threads_.emplace_back([this](std::stop_token stop) { Run(std::move(stop)); });
}

void PictureMaker::Stop() {
  for (std::jthread& thread : threads_)
    thread.request_stop();
  threads_.clear();
  std::vector<Task> left;  // answered by their destruction, without the lock
  const std::lock_guard<std::mutex> lock(access_);
  isStopped_ = true;
  left.swap(tasks_);
}

void PictureMaker::Make(PendingPicturePtr picture, const Track& track, SamplePtr sample) {
  PendingPictureList stale;
  {
    const std::lock_guard<std::mutex> lock(access_);
    if (isStopped_)
      return;
    const LiveOrder& order = picture->Order();
    const bool isStale = std::any_of(tasks_.begin(), tasks_.end(), [&](const Task& task) {
      return task.picture->Order().Supersedes(order);
    });
    stale = DropStale(order);
    if (isStale)
      stale.push_back(std::move(picture));
    else
      tasks_.push_back({std::move(picture), &track, std::move(sample)});
  }
  changed_.notify_one();
  AnswerStale(stale);
}

PendingPictureList PictureMaker::DropStale(const LiveOrder& newer) {
  PendingPictureList stale;
  std::erase_if(tasks_, [&](Task& task) {
    if (!newer.Supersedes(task.picture->Order()))
      return false;
    stale.push_back(std::move(task.picture));
    return true;
  });
  return stale;
}

void PictureMaker::Run(std::stop_token stop) {
  LiveDecoders decoders;
  while (true) {
    Task task;
    {
      std::unique_lock<std::mutex> lock(access_);
      if (!changed_.wait(lock, stop, [this] { return !tasks_.empty(); }) || stop.stop_requested())
        return;
      const auto next = std::max_element(
          tasks_.begin(), tasks_.end(),
          [](const Task& a, const Task& b) { return a.picture->priority < b.picture->priority; });
      task = std::move(*next);
      tasks_.erase(next);
    }
    LivePicture picture = decoders.Decode(task.picture->Order(), *task.track, *task.sample);
    picture.latency = task.picture->Age();
    watcher_(task.picture->Order(), picture);
    task.picture->Answer(std::move(picture));
  }
}

}  // namespace Moravel::Play
