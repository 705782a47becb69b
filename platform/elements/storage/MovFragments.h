#pragma once

#include <cstdint>
#include <span>

#include "elements/storage/ContainerTrack.h"

namespace qel {

// What fragments ("moof") of a track take from its header where they say nothing ("trex").
struct FragmentDefaults {
  uint32_t trackId = 0;
  uint32_t duration = 0;
  uint32_t size = 0;
};

// Appends the samples of one fragment, the content of a "moof" at that place of the file, to the
// track. Throws QELRuntimeError when it is damaged; what it held before that is appended.
void AppendFragment(std::span<const uint8_t> moof, int64_t moofOffset,
                    const FragmentDefaults& defaults, ContainerTrack& track);

}  // namespace qel
