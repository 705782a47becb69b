#pragma once

#include <string>

#include "qel/Samples.h"

namespace Moravel::Play {

// The bytes of a JPEG file of an I422 picture, full range as the decoder makes it, so good that
// what is seen is what was decoded. Any thread. Throws std::runtime_error.
std::string WriteJpeg(const qel::IVideoSample& image);

}  // namespace Moravel::Play
