#pragma once

#include <map>
#include <memory>
#include <mutex>

#include "Player/CacheUpdateQueue.h"
#include "Player/ISample.h"

namespace Moravel::Play {

// The compressed samples of one track between their preload order and their last picture. Owns
// them; the order schedule bounds how many there are. Any thread may call anything.
class SampleCache : public Player::CacheUpdateQueue {
 public:
  void Push(const Player::Output& output) override;

  // The sample of that time, protected until Release; null when the order brought none.
  Player::ISample* Protect(const Time::TimePoint& time);
  // Destroys the sample, if there is one.
  void Release(const Time::TimePoint& time);

 private:
  std::mutex samplesAccess_;                                             // guards samples_
  std::map<Time::TimePoint, std::unique_ptr<Player::ISample>> samples_;  // by time of the order
};

}  // namespace Moravel::Play
