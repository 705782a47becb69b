#pragma once

#include <cstdint>
#include <span>

#include "elements/storage/ContainerTrack.h"

namespace qel {

// Applies a track's edit list ("elst", of the box "edts"): which of its samples are shown, how
// often and when. A sample belongs to an edit that its start lies in. What comes before the first
// sample that is shown takes no time. `movieUnits` a second is what durations of edits are given
// in. Throws QELRuntimeError for one that repeats samples without end.
void ApplyEdits(std::span<const uint8_t> elst, int64_t movieUnits, ContainerTrack& track);

}  // namespace qel
