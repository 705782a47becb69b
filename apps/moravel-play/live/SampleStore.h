#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>

#include "Player/ISample.h"
#include "live/LiveOrder.h"

namespace Moravel::Play {

using SamplePtr = std::shared_ptr<Player::ISample>;

// The compressed samples that were wanted last, of all tracks, within a number of bytes: the one
// that nobody wanted for longest goes first. Used by one thread at a time.
class SampleStore {
 public:
  explicit SampleStore(int64_t maxBytes) : maxBytes_(maxBytes) {}

  // Empty when it is not here. What is found counts as wanted now.
  SamplePtr Find(const SampleKey& key);
  bool Holds(const SampleKey& key) const { return entries_.contains(key); }
  // A sample that is larger than all there may be is not kept.
  void Add(const SampleKey& key, SamplePtr sample, int64_t bytes);

  int64_t Count() const { return static_cast<int64_t>(entries_.size()); }
  int64_t Bytes() const { return bytes_; }
  int64_t MaxBytes() const { return maxBytes_; }

 private:
  struct Entry {
    SamplePtr sample;
    int64_t bytes;
    std::list<SampleKey>::iterator place;
  };

  const int64_t maxBytes_;
  int64_t bytes_ = 0;
  std::map<SampleKey, Entry> entries_;
  std::list<SampleKey> lastWanted_;  // latest first
};

}  // namespace Moravel::Play
