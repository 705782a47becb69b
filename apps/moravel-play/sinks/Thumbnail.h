#pragma once

#include <cstdint>
#include <vector>

#include "command/Size.h"
#include "qel/Samples.h"

namespace Moravel::Play {

// The picture in another size, mostly a smaller one: four bytes B, G, R and unused to a pixel, row
// by row. Any thread. Throws std::runtime_error for a pixel format that the decoder does not
// deliver.
std::vector<uint8_t> MakeThumbnail(const qel::IVideoSample& image, Size size);

}  // namespace Moravel::Play
