#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>

namespace qel {

// Memory that is used again, so that a sample or a picture does not cost the mapping and clearing
// of fresh pages. Made by std::make_shared. Thread-safe; memory may outlive whoever made the pool,
// and giving it back on whatever thread allocates nothing.
class MemoryPool : public std::enable_shared_from_this<MemoryPool> {
 public:
  // So many bytes wait at most for their next use, others go back to the system.
  explicit MemoryPool(size_t maxIdleBytes) : maxIdleBytes_(maxIdleBytes) {}

  // `size` bytes of undefined content, from memory at most a sixteenth larger.
  std::shared_ptr<uint8_t[]> Take(size_t size);

 private:
  struct Block {
    std::unique_ptr<uint8_t[]> memory;
    size_t capacity;
  };
  // A list of one, which moves between the idle ones and a lease as it is.
  using BlockList = std::list<Block>;
  struct Lease;

  BlockList TakeIdle(size_t capacity);
  void GiveBack(BlockList& block) noexcept;

  const size_t maxIdleBytes_;
  std::mutex idleAccess_;  // guards all that follows
  BlockList idle_;         // oldest first
  size_t idleBytes_ = 0;
};

}  // namespace qel
