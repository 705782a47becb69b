#pragma once

#include "elements/storage/ContainerTrack.h"

namespace qel {

// Looks at some pictures of a track and takes into its facts how large they are, the shape of their
// pixels, and whether they are fields, and of which order. A picture that cannot be read is no
// reason: the next ones are looked at, then the header's word is taken. Throws QELRuntimeError when
// no sample lies inside the file, or nobody says how large the pictures are.
void TakePictureFacts(ReadAheadCache& file, ContainerTrack& track);

}  // namespace qel
