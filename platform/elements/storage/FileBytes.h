#pragma once

#include <cstdint>
#include <span>

namespace qel {

// What reading a file has cost so far.
struct ReadCost {
  int64_t requests = 0;
  int64_t bytes = 0;
};

// Where bytes of a file are wanted.
struct FilePart {
  int64_t offset = 0;
  std::span<uint8_t> bytes;
};

// The bytes of one file, wherever they lie. Used by one thread at a time.
class IFileBytes {
 public:
  virtual ~IFileBytes() = default;

  virtual int64_t Size() const = 0;
  // Fills all of these; they lie inside the file. A file that is far away is asked for them at
  // once. Throws QELRuntimeError when the bytes cannot be had.
  virtual void ReadAll(std::span<const FilePart> parts) = 0;
  void ReadAt(int64_t offset, std::span<uint8_t> bytes) {
    const FilePart part{offset, bytes};
    ReadAll({&part, 1});
  }
  virtual ReadCost Cost() const = 0;
};

}  // namespace qel
