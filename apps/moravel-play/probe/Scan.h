#pragma once

#include <atomic>
#include <cstdint>
#include <stop_token>
#include <string>
#include <vector>

#include "elements/storage/TrackIndex.h"
#include "sinks/Picture.h"
#include "tracks/TrackSource.h"

namespace Moravel::Play {

// Samples one after the other with the same fate.
struct ScanLoss {
  PictureState state;
  int64_t first;
  int64_t last;
  std::string reason;  // of the first one; may be empty
};

// What came of reading all pictures of a track.
struct ScanResult {
  int64_t samplesRead = 0;
  int64_t samplesLost = 0;       // all those that are not as they should be
  std::vector<ScanLoss> losses;  // in the order of the track
  int64_t unlisted = 0;          // lost samples that are not in the list, as there are too many
  bool isUnreadable = false;     // the server did not give some
};

// How far all scans are. Written by them, read by anybody.
struct ScanProgress {
  std::atomic<int64_t> done = 0;
  std::atomic<int64_t> all = 0;
};

// Reads and decodes all pictures of the track that the source is set to, in so many threads, until
// a stop. Throws what making decoders throws.
ScanResult ScanTrack(const TrackSource& source, const Track& track, const qel::TrackIndex& index,
                     int jobs, ScanProgress& progress, std::stop_token stop);

}  // namespace Moravel::Play
