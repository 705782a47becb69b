#include "elements/storage/BufferPool.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace qel {

namespace {

// Free memory that is kept, in bytes and in pieces.
constexpr size_t kMaxFreeBytes = size_t{2} << 20;
constexpr size_t kMaxFreeBuffers = 256;

// Sizes are rounded up to steps of an eighth of a power of two, so that samples of about the same
// size fit into each other's memory.
size_t RoundUp(size_t size) {
  const size_t step = std::max<size_t>(std::bit_floor(size) / 8, 64);
  return (size + step - 1) / step * step;
}

}  // namespace

std::shared_ptr<uint8_t[]> BufferPool::Acquire(size_t size) {
  const size_t capacity = RoundUp(size);
  std::unique_ptr<uint8_t[]> memory = TakeFree(capacity);
  if (!memory)
    memory = std::make_unique_for_overwrite<uint8_t[]>(capacity);
  const auto giveBack = [pool = shared_from_this(), capacity](uint8_t* bytes) {
    pool->Release({capacity, std::unique_ptr<uint8_t[]>(bytes)});
  };
  return {memory.release(), giveBack};
}

std::unique_ptr<uint8_t[]> BufferPool::TakeFree(size_t capacity) {
  const std::lock_guard lock(freeAccess_);
  // The one given up last, whose pages are most likely still in the caches.
  const auto found = std::find_if(free_.rbegin(), free_.rend(), [capacity](const FreeBuffer& b) {
    return b.capacity == capacity;
  });
  if (found == free_.rend())
    return nullptr;
  std::unique_ptr<uint8_t[]> memory = std::move(found->memory);
  free_.erase(std::next(found).base());
  freeBytes_ -= capacity;
  return memory;
}

void BufferPool::Release(FreeBuffer buffer) {
  const std::lock_guard lock(freeAccess_);
  while (!free_.empty() && (freeBytes_ + buffer.capacity > kMaxFreeBytes ||
                            free_.size() >= kMaxFreeBuffers)) {  // the oldest go first
    freeBytes_ -= free_.front().capacity;
    free_.erase(free_.begin());
  }
  if (buffer.capacity > kMaxFreeBytes)
    return;
  freeBytes_ += buffer.capacity;
  free_.push_back(std::move(buffer));
}

}  // namespace qel
