#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "elements/storage/FileBytes.h"
#include "elements/storage/TrackFacts.h"
#include "qel/MediaTime.h"

// Where the pictures of a motion-JPEG track lie in its file, and when they are shown.
namespace qel {

constexpr int64_t kMaxIndexEntries = 10'000'000;
// All that is read of one file while its index is.
constexpr int64_t kMaxIndexBytes = int64_t{384} << 20;
// How far into its first picture a track is looked at for the picture's size.
constexpr int64_t kMaxPictureHeadBytes = int64_t{64} << 10;

// The index of one track, and what all of its pictures have in common. A value; any number of
// threads may read one.
class TrackIndex {
 public:
  struct Sample {
    int64_t offset;  // in the file, of the payload
    uint32_t size;   // 0: the sample was dropped, there is nothing to show
  };

  const TrackFacts& Facts() const { return facts; }

  // AVI: every payload has a chunk header in front of it, stream number in two digits, 'd', 'c' or
  // 'b', and the payload's length (little-endian).
  static constexpr int kAviChunkHeaderBytes = 8;
  bool isAvi = false;
  int streamNumber = 0;

  int64_t Count() const { return static_cast<int64_t>(sizes.size()); }
  Sample At(int64_t number) const {
    return {offsets[static_cast<size_t>(number)], sizes[static_cast<size_t>(number)]};
  }
  // In edit units.
  int64_t Start(int64_t number) const {
    return starts.empty() ? number : starts[static_cast<size_t>(number)];
  }
  int64_t Duration(int64_t number) const { return Start(number + 1) - Start(number); }

  // The sample whose interval [start, next start) contains the time, nothing outside the track.
  // Throws QELRuntimeError for a rate with a zero part.
  std::optional<int64_t> Find(const MediaTime& time) const;

  TrackFacts facts;
  std::vector<int64_t> offsets;
  std::vector<uint32_t> sizes;
  // Empty when the rate is constant; else never decreasing, one more than there are samples.
  std::vector<int64_t> starts;
};

// Reads the index of the first motion-JPEG stream of an AVI or MOV file. The bytes may be anything:
// what is allocated is bounded by kMaxIndexEntries and kMaxIndexBytes. Throws QELRuntimeError that
// says what is wrong with the file, or what ReadAt threw.
TrackIndex ReadTrackIndex(IFileBytes& file);

}  // namespace qel
