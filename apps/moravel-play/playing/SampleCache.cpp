#include "playing/SampleCache.h"

namespace Moravel::Play {

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
  const std::lock_guard<std::mutex> lock(samplesAccess_);
  const auto entry = samples_.find(time);
  if (entry != samples_.end() && entry->second->Unprotect(1) == 0) {
    released = std::move(entry->second);
    samples_.erase(entry);
  }
}

}  // namespace Moravel::Play
