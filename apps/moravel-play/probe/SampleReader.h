#pragma once

#include "elements/storage/TrackIndex.h"
#include "tracks/TrackSource.h"

namespace Moravel::Play {

// A sample by its number, of the track that the source is set to. Throws what the framework throws.
qel::SampleContainerConstPtr ReadSample(const TrackSource& source, const qel::TrackIndex& index,
                                        int64_t number);

// Lets the source close the track: it keeps only so many open.
void Forget(const TrackSource& source, const Player::TrackId& id);

}  // namespace Moravel::Play
