#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "live/LiveDecoders.h"
#include "live/PendingPicture.h"
#include "live/SampleStore.h"

namespace Moravel::Play {

// Threads that turn the samples of orders into pictures and answer whoever waits: newest orders
// first, as they were fetched. An order that waits here becomes stale when the sample of a newer
// one of its lane is here too, so that fast dragging always shows something. Thread-safe.
class PictureMaker {
 public:
  // Told of each picture before it is answered, from the threads.
  using Watcher = std::function<void(const LiveOrder&, const LivePicture&)>;

  PictureMaker(int threads, Watcher watcher);
  ~PictureMaker() { Stop(); }

  // Ends the threads after the picture that each has in hand. What waits is answered as failed, and
  // so is what comes from then on.
  void Stop();

  void Make(PendingPicturePtr picture, const Track& track, SamplePtr sample);

 private:
  struct Task {
    PendingPicturePtr picture;
    const Track* track;
    SamplePtr sample;
  };

  void Run(std::stop_token stop);
  PendingPictureList DropStale(const LiveOrder& newer);

  const Watcher watcher_;

  std::mutex access_;  // guards the next three
  std::condition_variable_any changed_;
  std::vector<Task> tasks_;
  bool isStopped_ = false;

  std::vector<std::jthread> threads_;  // the last: they use all of the above
};

}  // namespace Moravel::Play
