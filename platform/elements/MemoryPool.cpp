#include "elements/MemoryPool.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace qel {

namespace {

constexpr size_t kMaxIdleBlocks = 256;

// Sizes are rounded up to steps of a sixteenth of a power of two, so that samples of about the same
// size fit into each other's memory.
size_t RoundUp(size_t size) {
  const size_t step = std::max<size_t>(std::bit_floor(size) / 16, 64);
  return (size + step - 1) / step * step;
}

}  // namespace

struct MemoryPool::Lease {
  Lease(std::shared_ptr<MemoryPool> from, BlockList taken)
      : pool(std::move(from)), block(std::move(taken)) {}
  ~Lease() { pool->GiveBack(block); }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  const std::shared_ptr<MemoryPool> pool;
  BlockList block;
};

std::shared_ptr<uint8_t[]> MemoryPool::Take(size_t size) {
  const size_t capacity = RoundUp(size);
  BlockList block = TakeIdle(capacity);
  if (block.empty())
    block.push_back({std::make_unique_for_overwrite<uint8_t[]>(capacity), capacity});
  uint8_t* const bytes = block.front().memory.get();
  return {std::make_shared<Lease>(shared_from_this(), std::move(block)), bytes};
}

MemoryPool::BlockList MemoryPool::TakeIdle(size_t capacity) {
  BlockList taken;
  const std::lock_guard lock(idleAccess_);
  // The one given back last, whose pages are most likely still in the caches.
  const auto found = std::find_if(idle_.rbegin(), idle_.rend(), [capacity](const Block& block) {
    return block.capacity == capacity;
  });
  if (found == idle_.rend())
    return taken;
  taken.splice(taken.end(), idle_, std::next(found).base());
  idleBytes_ -= capacity;
  return taken;
}

void MemoryPool::GiveBack(BlockList& block) noexcept {
  const std::lock_guard lock(idleAccess_);
  idleBytes_ += block.front().capacity;
  idle_.splice(idle_.end(), block);
  while (idleBytes_ > maxIdleBytes_ || idle_.size() > kMaxIdleBlocks) {
    idleBytes_ -= idle_.front().capacity;
    idle_.pop_front();
  }
}

}  // namespace qel
