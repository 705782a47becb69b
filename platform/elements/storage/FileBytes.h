#pragma once

#include <cstdint>
#include <span>

namespace qel {

// What reading a file has cost so far.
struct ReadCost {
  int64_t requests = 0;
  int64_t bytes = 0;
};

// The bytes of one file, wherever they lie. Used by one thread at a time.
class IFileBytes {
 public:
  virtual ~IFileBytes() = default;

  virtual int64_t Size() const = 0;
  // Fills `bytes` from `offset` on; all of it lies inside the file. Throws QELRuntimeError when the
  // bytes cannot be had.
  virtual void ReadAt(int64_t offset, std::span<uint8_t> bytes) = 0;
  virtual ReadCost Cost() const = 0;
};

}  // namespace qel
