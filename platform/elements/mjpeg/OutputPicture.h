#pragma once

#include "elements/mjpeg/JpegPicture.h"
#include "elements/mjpeg/YuvPicture.h"
#include "qel/FourCC.h"
#include "qel/Samples.h"

namespace qel::mjpeg {

// The planes to decode for outputs of that format, so that they need no copy where that is
// possible.
JpegPicture::Planes PreferredPlanes(FourCC fourCC);

// Makes the bytes of a picture of that format and size: planes one after the other, rows without
// padding. Where the decoded picture lies in memory like that already, the result is a view of it.
BufferConstPtr MakeOutputPicture(const YuvPicture& picture, FourCC fourCC, Size size);

}  // namespace qel::mjpeg
