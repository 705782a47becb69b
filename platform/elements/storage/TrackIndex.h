#pragma once

#include <cstdint>
#include <optional>

#include "elements/storage/ContainerTrack.h"
#include "elements/storage/FileBytes.h"
#include "elements/storage/TrackFacts.h"
#include "qel/MediaTime.h"

// Where the pictures of a motion-JPEG track lie in its file, and when they are shown.
namespace qel {

constexpr int64_t kMaxIndexEntries = 10'000'000;
// All that is read of one file while its index is.
constexpr int64_t kMaxIndexBytes = int64_t{384} << 20;
// No file has bytes from there on.
constexpr int64_t kMaxFileOffset = int64_t{1} << 53;

// The index of one track. Immutable; any number of threads may read one.
class TrackIndex {
 public:
  struct Sample {
    int64_t offset;  // in the file, of the payload
    int64_t size;    // 0: there is nothing to show
    // Of the payload's first chunk: all of it but where each field has a chunk of its own.
    int64_t chunkSize;
    // Where the second field lies in the payload; 0 where only the bytes themselves tell.
    int64_t secondField;
  };

  // Throws QELRuntimeError when the track's rate cannot be.
  explicit TrackIndex(ContainerTrack track);

  const TrackFacts& Facts() const { return facts_; }

  // AVI: every payload has a chunk header in front of it, stream number in two digits, 'd', 'c' or
  // 'b', and the payload's length (little-endian).
  int64_t ChunkHeaderBytes() const { return chunkHeaderBytes_; }
  int StreamNumber() const { return streamNumber_; }

  int64_t Count() const { return times_.Count(); }
  Sample At(int64_t number) const;
  // In edit units of Facts().timeRate. The interval of a sample reaches to the start of the next.
  int64_t Start(int64_t number) const { return times_.Start(number); }
  int64_t Duration(int64_t number) const { return times_.Duration(number); }
  const SampleTimes& Times() const { return times_; }

  // The sample whose interval contains the time, nothing outside the track. Throws QELRuntimeError
  // for a rate with a zero part.
  std::optional<int64_t> Find(const MediaTime& time) const;

  // What it takes in memory, in proportion to what the file holds of it.
  int64_t MemoryBytes() const;

 private:
  void PairFields();

  TrackFacts facts_;
  SamplePlaces places_;
  SampleTimes times_;
  int64_t chunkHeaderBytes_;
  int streamNumber_;
  bool isFieldEach_;
};

// Reads the index of the first motion-JPEG stream of an AVI or MOV file. The bytes may be anything:
// what is allocated is bounded by what the file holds, and by kMaxIndexEntries and kMaxIndexBytes.
// Throws QELRuntimeError that says what is wrong with the file, or what ReadAt threw.
TrackIndex ReadTrackIndex(IFileBytes& file);

}  // namespace qel
