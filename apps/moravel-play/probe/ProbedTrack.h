#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "elements/storage/TrackIndex.h"
#include "probe/Scan.h"
#include "tracks/Track.h"
#include "tracks/TrackSource.h"

namespace Moravel::Play {

// The bytes of those samples that have any.
struct SampleSizes {
  int64_t least = 0;
  double mean = 0;
  int64_t p99 = 0;  // not exceeded by 99 of 100
  int64_t most = 0;
  int64_t total = 0;
};

// What can be told of a track without reading its pictures, but for the first one.
struct ProbedTrack {
  Track track;
  std::shared_ptr<const qel::TrackIndex> index;  // never empty
  SampleSizes sizes;
  double seconds = 0;                 // of the whole track
  std::string sampling;               // "4:2:2"; empty when the first picture does not tell
  std::vector<std::string> problems;  // each in one line
  std::optional<ScanResult> scan;

  const qel::TrackFacts& Facts() const { return index->Facts(); }
};

// The source is set to the track. Throws what the framework throws, also when the first picture
// cannot be read.
ProbedTrack ProbeTrack(TrackSource& source, const NamedTrack& named);

}  // namespace Moravel::Play
