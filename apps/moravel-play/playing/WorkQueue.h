#pragma once

#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <stop_token>

#include "Player/ISample.h"
#include "playing/OrderSchedule.h"
#include "sinks/Picture.h"

namespace Moravel::Play {

// One sample to decode, in all sizes and fields.
struct Task {
  Job job;
  Player::ISample* sample = nullptr;        // protected in the track's cache; null: there is none
  PictureState state = PictureState::Fine;  // others: there is no sample
};

// From the connections to the decode workers. The tasks of a track are taken in the order of its
// play sequence, whichever connection was faster; whoever writes pictures in that order then never
// waits for one that no worker has begun. It holds no more than the windows of the tracks do: each
// task has its place in one.
class WorkQueue {
 public:
  explicit WorkQueue(size_t producers) : producers_(producers) {}

  // All positions of a track are pushed, once each, up to the last one that is pushed.
  void Push(const Task& task);
  // The producer pushes no more.
  void ProducerDone();
  // Waits for a task; nothing once all producers are done and all tasks taken, or after the stop.
  std::optional<Task> Pop(std::stop_token stop);

 private:
  struct Coming {
    int64_t next = 0;               // position
    std::map<int64_t, Task> early;  // by position
  };

  std::mutex tasksAccess_;  // guards all below
  std::condition_variable_any changed_;
  std::deque<Task> tasks_;
  std::map<const PlayingTrack*, Coming> coming_;
  size_t producers_;
};

}  // namespace Moravel::Play
