#pragma once

#include <string>
#include <vector>

#include "command/Options.h"
#include "playing/TrackList.h"

namespace Moravel::Play {

// The outcome of a playback, to be told when all its threads have ended.
struct Outcome {
  std::vector<PlayingTrack*> tracks;
  std::vector<FailedTrack> failed;
  const WorkerStatistics& workers;
  const Options& options;
  double seconds = 0;
  bool interrupted = false;
  int exitCode = 0;
};

// For people: a line for each track and each of its sizes.
std::string ToTable(const Outcome& outcome);
// For programs: one JSON object and a line end.
std::string ToJson(const Outcome& outcome);

}  // namespace Moravel::Play
