#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <stop_token>

#include "Player/CacheUpdateQueue.h"
#include "Player/ISample.h"

namespace Moravel::Play {

// The compressed samples of one track between their preload order and their last picture. Owns
// them, and holds the preload orders back so that there are never more than a window of them.
//
// One thread preloads (WaitForRoom, then the order, then Protect), any threads decode and Release.
class SampleCache : public Player::CacheUpdateQueue {
 public:
  explicit SampleCache(int window) : window_(window) {}

  // Takes one place in the window, waiting for it; false when the stop came first.
  bool WaitForRoom(std::stop_token stop);

  void Push(const Player::Output& output) override;

  // The sample of that time, protected until Release; null when the order brought none.
  Player::ISample* Protect(const Time::TimePoint& time);
  // Gives the place back, and destroys the sample, if there is one.
  void Release(const Time::TimePoint& time);

 private:
  const int window_;

  std::mutex samplesAccess_;  // guards all below
  std::condition_variable_any room_;
  int placesTaken_ = 0;
  std::map<Time::TimePoint, std::unique_ptr<Player::ISample>> samples_;  // by time of the order
};

}  // namespace Moravel::Play
