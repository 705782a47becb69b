#pragma once

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "elements/storage/FileBytes.h"

// Files that exist only as far as somebody looks at them, and the headers that make them tracks.
namespace Moravel::Test {

using Bytes8 = std::vector<uint8_t>;

// Zeros except where bytes were put. Counts what is read of it.
class SparseFile : public qel::IFileBytes {
 public:
  explicit SparseFile(int64_t size = 0) : size_(size) {}

  void Put(int64_t offset, Bytes8 bytes) {
    size_ = std::max(size_, offset + static_cast<int64_t>(bytes.size()));
    parts_[offset] = std::move(bytes);
  }
  int64_t Size() const override { return size_; }
  void ReadAt(int64_t offset, std::span<uint8_t> bytes) override {
    ++reads;
    bytesRead += static_cast<int64_t>(bytes.size());
    const int64_t end = offset + static_cast<int64_t>(bytes.size());
    std::fill(bytes.begin(), bytes.end(), uint8_t{0});
    for (const auto& [at, part] : parts_) {
      const int64_t from = std::max(at, offset);
      const int64_t to = std::min(at + static_cast<int64_t>(part.size()), end);
      if (from < to)
        std::copy(part.begin() + (from - at), part.begin() + (to - at),
                  bytes.begin() + (from - offset));
    }
  }
  // The same as a file of the system, sparse as well.
  void Save(const std::filesystem::path& file) const;

  int64_t reads = 0;
  int64_t bytesRead = 0;

 private:
  int64_t size_;
  std::map<int64_t, Bytes8> parts_;
};

// Numbers and texts one after the other.
class Writer {
 public:
  explicit Writer(bool bigEndian) : bigEndian_(bigEndian) {}

  Writer& Number(uint64_t value, int size) {
    for (int i = 0; i < size; ++i)
      bytes.push_back(static_cast<uint8_t>(value >> 8 * (bigEndian_ ? size - 1 - i : i)));
    return *this;
  }
  Writer& U16(std::initializer_list<uint64_t> values) { return Numbers(values, 2); }
  Writer& U32(std::initializer_list<uint64_t> values) { return Numbers(values, 4); }
  Writer& Text(std::string_view text) {
    bytes.insert(bytes.end(), text.begin(), text.end());
    return *this;
  }
  Writer& Append(const Bytes8& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
    return *this;
  }

  Bytes8 bytes;

 private:
  Writer& Numbers(std::initializer_list<uint64_t> values, int size) {
    for (const uint64_t value : values)
      Number(value, size);
    return *this;
  }

  const bool bigEndian_;
};

// A track of samples of one size at one distance; only the first picture has bytes.
struct SparseTrack {
  int64_t samples = 20'000;
  int64_t stride = 20'000;
  uint32_t sampleSize = 19'000;
  int segments = 1;         // of an AVI file, each with an index of its own when more than one
  bool indexFirst = false;  // in a MOV file
  bool equalSizes = false;  // told once in a MOV file
};

struct SparseTrackFile {
  SparseFile file;
  int64_t indexBytes = 0;
};

SparseTrackFile MakeSparseAvi(const SparseTrack& track, const Bytes8& picture);
SparseTrackFile MakeSparseMov(const SparseTrack& track, const Bytes8& picture);

}  // namespace Moravel::Test
