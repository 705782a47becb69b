#pragma once

#include <string>

#include "tracks/Track.h"

namespace Moravel::Play {

// How file names tell the tracks apart: by their place on the command line, and by the number that
// a storage server knows them by: "track1", "track2-T7".
std::string FileLabel(const Track& track);
// The same for a caption: "track 1", "T7".
std::string CaptionLabel(const Track& track);

}  // namespace Moravel::Play
