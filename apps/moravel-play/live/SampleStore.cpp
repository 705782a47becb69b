#include "live/SampleStore.h"

#include <utility>

namespace Moravel::Play {

namespace {

constexpr int64_t kBookkeepingBytes = 512;  // what a sample costs besides its data, about

}  // namespace

SamplePtr SampleStore::Find(const SampleKey& key) {
  const auto found = entries_.find(key);
  if (found == entries_.end())
    return nullptr;
  lastWanted_.splice(lastWanted_.begin(), lastWanted_, found->second.place);
  return found->second.sample;
}

void SampleStore::Add(const SampleKey& key, SamplePtr sample, int64_t bytes) {
  bytes += kBookkeepingBytes;
  if (bytes > maxBytes_ || entries_.contains(key))
    return;
  lastWanted_.push_front(key);
  entries_.emplace(key, Entry{std::move(sample), bytes, lastWanted_.begin()});
  bytes_ += bytes;
  while (bytes_ > maxBytes_) {
    const auto oldest = entries_.find(lastWanted_.back());
    bytes_ -= oldest->second.bytes;
    entries_.erase(oldest);
    lastWanted_.pop_back();
  }
}

}  // namespace Moravel::Play
