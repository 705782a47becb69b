#pragma once

#include <cstdint>
#include <string>

#include "command/TimeArgument.h"
#include "tracks/Track.h"

// Between the times that people write and the samples of a track.
namespace Moravel::Play {

// The sample that a start names: of seconds, the one that is shown then; of a time code, so many
// pictures after the first one of its second. Counted from the end, it is at least the first one.
// It may lie behind the end. Throws UsageError for more pictures than a second of the track has.
int64_t SampleOf(const TimeArgument& start, const Track& track);

// How many samples from that one on last that long, to the nearest, and at least one. Throws
// UsageError when the duration is one from the end, or as above.
int64_t SamplesIn(const TimeArgument& duration, const Track& track, int64_t first = 0);

// "00:01:02:24", of a track of variable rate "62.96": what SampleOf takes for that sample.
std::string ToTimeCode(const Track& track, int64_t sampleNumber);

}  // namespace Moravel::Play
