#include "tracks/PlaySequence.h"

#include <bit>

namespace Moravel::Play {

namespace {

constexpr int kRounds = 4;

// The finisher of a common 64-bit mixing function ("splitmix64").
uint64_t Mix(uint64_t value) {
  value += 0x9e3779b97f4a7c15;
  value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9;
  value = (value ^ (value >> 27)) * 0x94d049bb133111eb;
  return value ^ (value >> 31);
}

}  // namespace

PlaySequence::PlaySequence(int64_t firstSample, int64_t count, Order order)
    : firstSample_(firstSample), count_(count), order_(order) {
  const auto bits = static_cast<unsigned>(std::bit_width(static_cast<uint64_t>(count)));
  halfBits_ = bits / 2 + 1;
}

int64_t PlaySequence::SampleAt(int64_t position) const {
  switch (order_) {
    case Order::Forward:
      break;
    case Order::Reverse:
      return firstSample_ + count_ - 1 - position;
    case Order::Random: {
      // A permutation of a power of two that holds all positions, walked until it is back inside.
      auto shuffled = static_cast<uint64_t>(position);
      do {
        shuffled = Shuffle(shuffled);
      } while (shuffled >= static_cast<uint64_t>(count_));
      return firstSample_ + static_cast<int64_t>(shuffled);
    }
  }
  return firstSample_ + position;
}

// A Feistel network: whatever its round function, each input has an output of its own.
uint64_t PlaySequence::Shuffle(uint64_t position) const {
  const uint64_t mask = (uint64_t(1) << halfBits_) - 1;
  uint64_t left = position >> halfBits_;
  uint64_t right = position & mask;
  for (uint64_t round = 0; round < kRounds; ++round) {
    const uint64_t mixed = left ^ (Mix(right + (round << 32)) & mask);
    left = right;
    right = mixed;
  }
  return left << halfBits_ | right;
}

}  // namespace Moravel::Play
