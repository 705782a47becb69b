#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "elements/storage/ReadAheadCache.h"
#include "elements/storage/SamplePlaces.h"
#include "elements/storage/SampleTimes.h"

namespace qel {

constexpr int64_t kChunkHeaderBytes = 8;
constexpr int64_t kRiffHeaderBytes = 12;

// The chunks of one stream of an AVI file, read from whichever of its indexes knows more of them.
// An empty chunk lets the picture before it last longer; those in front of the first picture stay
// as samples without bytes. Not thread-safe.
class AviIndexes {
 public:
  AviIndexes(ReadAheadCache& file, int stream) : file_(file), stream_(stream) {}

  // The content of the stream's "indx" chunk: index chunks, or an index of those. What cannot be
  // followed becomes a problem.
  void ReadOpenDml(std::span<const uint8_t> index);
  // "idx1". Its offsets count from the start of the file or from the type of the "movi" list.
  // Nothing changes unless it has more chunks than were there.
  void ReadOld(int64_t offset, int64_t size, int64_t movi);

  // Of the stream, empty ones included.
  int64_t Chunks() const { return times.Start(times.Count()); }
  int64_t Repeats() const { return Chunks() - places.Count(); }
  const std::vector<std::string>& Problems() const { return problems_; }

  SamplePlaces places;
  SampleTimes times;

 private:
  struct OldEntry {
    std::string name;
    int64_t offset;
    uint32_t size;
  };

  void Add(int64_t payload, uint32_t size);
  void ReadIndexOfIndexes(std::span<const uint8_t> entries, uint32_t count);
  void ReadIndexChunk(int64_t offset);
  void ReadEntries(std::span<const uint8_t> index);
  int64_t FindBase(const OldEntry& entry, int64_t movi);
  bool IsOfStream(const std::string& name) const;

  ReadAheadCache& file_;
  const int stream_;
  std::vector<std::string> problems_;
  int64_t entryBytes_ = 0;
};

}  // namespace qel
