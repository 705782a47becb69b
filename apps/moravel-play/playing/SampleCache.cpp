#include "playing/SampleCache.h"

namespace Moravel::Play {

bool SampleCache::WaitForRoom(std::stop_token stop) {
  std::unique_lock<std::mutex> lock(samplesAccess_);
  if (!room_.wait(lock, stop, [this] { return placesTaken_ < window_; }))
    return false;
  ++placesTaken_;
  return true;
}

void SampleCache::Push(const Player::Output& output) {
  if (output.sample_ == nullptr)
    return;
  const std::lock_guard<std::mutex> lock(samplesAccess_);
  // The place is made first: when that fails, the sample is still the preloader's.
  samples_[output.tp_].reset(output.sample_);
}

Player::ISample* SampleCache::Protect(const Time::TimePoint& time) {
  const std::lock_guard<std::mutex> lock(samplesAccess_);
  const auto entry = samples_.find(time);
  if (entry == samples_.end())
    return nullptr;
  entry->second->Protect(1);
  return entry->second.get();
}

void SampleCache::Release(const Time::TimePoint& time) {
  std::unique_ptr<Player::ISample> released;  // its memory is given back without the lock
  {
    const std::lock_guard<std::mutex> lock(samplesAccess_);
    const auto entry = samples_.find(time);
    if (entry != samples_.end() && entry->second->Unprotect(1) == 0) {
      released = std::move(entry->second);
      samples_.erase(entry);
    }
    --placesTaken_;
  }
  room_.notify_one();
}

}  // namespace Moravel::Play
