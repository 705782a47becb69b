#pragma once

#include "command/Options.h"
#include "tracks/Track.h"

namespace Moravel::Play {

// Fills in what the options want to be played of a track that is known. Throws UsageError when they
// ask for nothing of it.
Track ChooseSamples(Track track, const Options& options);

}  // namespace Moravel::Play
