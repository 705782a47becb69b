#pragma once

#include <cstdint>

#include "qel/Samples.h"

namespace Moravel::Play {

// Converts a picture of any format that the decoder delivers (full-range luma and chroma, chroma
// smoothed) to four bytes a pixel: B, G, R, unused. Throws std::runtime_error for another format.
void ConvertToBgrx(const qel::IVideoSample& image, uint8_t* bgrx, int stride);

}  // namespace Moravel::Play
