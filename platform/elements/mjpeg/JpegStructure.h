#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace qel::mjpeg {

// What the markers of a JPEG picture tell before any of it is decoded (ITU-T T.81, annex B).
struct JpegStructure {
  bool arithmeticCoding = false;
  // At least as many scans as a decoder will find; 1 for ordinary motion JPEG.
  int64_t scans = 0;
};

// Reads the markers up to the first scan. Never fails: what it cannot follow is left to the
// decoder's own checks. Looks at the bytes of the scans only when there are several of them.
JpegStructure ReadJpegStructure(std::span<const uint8_t> picture);

}  // namespace qel::mjpeg
