#pragma once

#include "elements/mjpeg/YuvPicture.h"
#include "qel/Samples.h"

namespace qel::mjpeg {

// A decoded picture of any of the formats as BGRA, in its own or another size: for whoever shows
// or draws it. Made as the decoder makes its own BGRA. Any thread. Throws QELRuntimeError for a
// picture of another format.
BufferConstPtr MakeBgraPicture(const IVideoSample& picture, Size size);

}  // namespace qel::mjpeg
