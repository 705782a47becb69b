#pragma once

#include "playing/Playback.h"

namespace Moravel::Play {

// Takes samples from the queue, decodes them in every size and field, and gives the pictures to the
// sinks, until no more come or the playback is stopped. All sizes of a picture are decoded one
// after the other, so that the decoder elements can share the work. Pictures that are damaged or
// fail are counted and told. Several workers, in threads of their own, share a playback; each has a
// number.
void DecodeSamples(size_t worker, const Playback& playback);

}  // namespace Moravel::Play
