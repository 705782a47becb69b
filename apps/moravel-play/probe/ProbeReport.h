#pragma once

#include <string>
#include <variant>
#include <vector>

#include "probe/ProbedTrack.h"
#include "tracks/NamedTracks.h"

namespace Moravel::Play {

// What is to be told in the end, the tracks in the order of the command line.
struct ProbeOutcome {
  std::vector<ProbedTrack> tracks;
  std::vector<FailedTrack> failed;
  bool interrupted = false;
  int exitCode = 0;
};

// For people: a paragraph for each track, at most 80 columns wide but for what is longer in itself.
std::string ToText(const ProbedTrack& track);
// For programs, as docs/report.md tells: one JSON object and a line end.
std::string ToJson(const ProbeOutcome& outcome);

}  // namespace Moravel::Play
