#pragma once

#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "playing/Stopper.h"
#include "playing/WorkQueue.h"
#include "sinks/Picture.h"
#include "tracks/TrackSetup.h"

namespace Moravel::Play {

using PictureSinks = std::vector<std::unique_ptr<IPictureSink>>;

// Threads that take samples from the queue, decode them in every size and field, and give the
// pictures to the sinks. A worker decodes all sizes of a picture one after the other, so that the
// decoder elements can share the work. Pictures that are damaged or fail are counted and told.
class DecodeWorkers {
 public:
  // `done` is called by each worker as its last act. All references outlive the workers.
  DecodeWorkers(int jobs, WorkQueue& queue, const PictureSinks& sinks, Stopper& stopper,
                std::function<void()> done);

 private:
  std::vector<std::jthread> threads_;
};

}  // namespace Moravel::Play
