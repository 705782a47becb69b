#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>

#include "elements/mjpeg/YuvPicture.h"
#include "qel/FourCC.h"

namespace qel::mjpeg {

// Packed 4:2:2 begins with luma (Yuyv) or with chroma (Uyvy).
enum class Layout { Luma, Planar420, Planar422, Yuyv, Uyvy, Rgb };

// One of the formats that pictures are delivered in: planes one after the other, rows without
// padding, full range (docs/elements.md).
struct PixelFormat {
  FourCC fourCC;
  const char* name;
  Layout layout;
  // V stands before U; in RGB formats, red before blue, which is the same arithmetic with U and V
  // exchanged.
  bool swapped = false;
  int bytesPerPixel = 0;  // of RGB
};

// Null for a format that is not one of them.
const PixelFormat* FindPixelFormat(FourCC fourCC);

// All of them by name, and their names in a line.
std::map<std::string, FourCC> FormatsByName();
std::string SupportedFormats();

// The rows of one plane, in bytes. A format that has fewer than three planes has empty ones.
struct PlaneRows {
  size_t Bytes() const { return size_t(rowBytes) * size_t(rows); }

  int rowBytes = 0;
  int rows = 0;
};
using PictureRows = std::array<PlaneRows, 3>;

// The planes of a picture of that size, as they follow each other in memory.
PictureRows RowsOf(const PixelFormat& format, Size size);

// Half a side, for chroma: odd sides are rounded up.
constexpr int Half(int side) {
  return (side + 1) / 2;
}

}  // namespace qel::mjpeg
