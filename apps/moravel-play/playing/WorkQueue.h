#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <stop_token>

#include "Player/ISample.h"
#include "sinks/Picture.h"

namespace Moravel::Play {

struct PlayingTrack;

// One sample to decode, in all sizes and fields.
struct Task {
  PlayingTrack* track = nullptr;
  int64_t position = 0;                     // in the track's play sequence
  Player::ISample* sample = nullptr;        // protected in the track's cache; null: there is none
  PictureState state = PictureState::Fine;  // Missing or Unreadable without a sample
};

// From the preload threads to the decode workers, first in, first out. It holds no more than the
// windows of the tracks do: each task has its place in one.
class WorkQueue {
 public:
  explicit WorkQueue(size_t producers) : producers_(producers) {}

  void Push(const Task& task);
  // The producer pushes no more.
  void ProducerDone();
  // Waits for a task; nothing once all producers are done and all tasks taken, or after the stop.
  std::optional<Task> Pop(std::stop_token stop);

 private:
  std::mutex tasksAccess_;  // guards all below
  std::condition_variable_any changed_;
  std::deque<Task> tasks_;
  size_t producers_;
};

}  // namespace Moravel::Play
