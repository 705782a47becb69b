#pragma once

#include <cstdint>

#include "command/Size.h"
#include "sinks/OutputFile.h"

namespace Moravel::Play {

// Writes an opaque picture, four bytes B, G, R and unused to a pixel, as a PNG file, and closes
// that. Errors are OutputError and ClosedPipe.
void WritePng(OutputFile& file, const uint8_t* bgrx, int stride, Size size);

}  // namespace Moravel::Play
