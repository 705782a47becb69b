#pragma once

#include <cstdint>
#include <string>

#include "tracks/Track.h"

// The time code that a file brings along, beside the times of its track, which begin with 0.
namespace Moravel::Play {

// Of a sample's picture: "10:00:05:12", "10:00:05;12" where numbers are dropped; empty when the
// file has none.
std::string FileTimecodeOf(const Track& track, int64_t sample);

// Whether it is one as people enter it: "TC 10:00:05:12", or "10:00:05;12", which can be nothing
// else.
bool IsFileTimecode(const std::string& text);

// The sample that it names. Throws BadRequest, which says what would be right.
int64_t SampleOfFileTimecode(const std::string& text, const Track& track);

}  // namespace Moravel::Play
