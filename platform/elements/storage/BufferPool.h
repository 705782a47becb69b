#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace qel {

// Memory for sample bytes that is used again, so that a sample does not cost the mapping of fresh
// pages. Thread-safe; buffers may outlive the pool's owner and be given up on any thread.
class BufferPool : public std::enable_shared_from_this<BufferPool> {
 public:
  // `size` bytes of undefined content, from memory at most an eighth larger.
  std::shared_ptr<uint8_t[]> Acquire(size_t size);

 private:
  struct FreeBuffer {
    size_t capacity;
    std::unique_ptr<uint8_t[]> memory;
  };

  void Release(FreeBuffer buffer);
  std::unique_ptr<uint8_t[]> TakeFree(size_t capacity);

  std::mutex freeAccess_;  // guards all that follows
  std::vector<FreeBuffer> free_;
  size_t freeBytes_ = 0;
};

}  // namespace qel
