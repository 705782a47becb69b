#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "elements/storage/FileBytes.h"

namespace qel {

// Bytes `offset` to `end - 1` of a file.
struct FileRange {
  int64_t offset;
  int64_t end;
};

// The parts of a file that were read while its index is, so that each is read once and in few
// reads: a read fetches ahead, the further the longer reading goes on in one direction, unless it
// is told exactly what will be wanted. Never holds more than kMaxIndexBytes. Of no use after a
// failure. Not thread-safe.
class ReadAheadCache {
 public:
  explicit ReadAheadCache(IFileBytes& file) : file_(file) {}

  int64_t Size() const { return file_.Size(); }

  // Reads ahead exactly to `end`, or to the file's end. What is there already is not read again.
  void Fetch(int64_t offset, int64_t end);
  // The same for ranges that lie apart, side by side; not for very large ones.
  void FetchAll(std::span<const FileRange> ranges);
  // The bytes from `offset` on as far as they lie together: none only outside the file.
  std::span<const uint8_t> At(int64_t offset);
  bool Holds(int64_t offset) const { return !Held(offset).empty(); }
  // The same without keeping what was not there.
  void Read(int64_t offset, std::span<uint8_t> bytes);
  // The same into memory that grows while the bytes come: what is announced may never come.
  std::vector<uint8_t> Content(int64_t offset, int64_t size);
  // Throws QELRuntimeError, which says that the file is truncated, when it ends before.
  void ReadExactly(int64_t offset, std::span<uint8_t> bytes);

 private:
  std::span<const uint8_t> Held(int64_t offset) const;
  void Count(int64_t bytes);
  void AddMissing(FileRange range, std::vector<FilePart>& parts);

  IFileBytes& file_;
  std::map<int64_t, std::vector<uint8_t>> blocks_;  // by their offset, without overlap
  int64_t bytes_ = 0;
  int64_t lastEnd_ = 0;
  int64_t readAhead_ = 0;
};

}  // namespace qel
