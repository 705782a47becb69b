#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace qel::mjpeg {

struct Size {
  bool operator==(const Size&) const = default;

  int width = 0;
  int height = 0;
};

// Samples of one component, not owned.
struct Plane {
  const uint8_t* data = nullptr;
  int stride = 0;  // bytes from row to row; 0 when all rows are the same
  Size size;
};

// A decoded JPEG picture in the JPEG's own subsampling, full range. Immutable once decoded; any
// number of elements may read it, and output pictures may be views of its memory.
struct YuvPicture {
  Size codedSize;               // of the JPEG
  Size size;                    // of this picture, which may have been decoded smaller
  std::array<Plane, 3> planes;  // Y, U, V
  std::shared_ptr<const uint8_t[]> memory;
  size_t bytes = 0;
  std::string damage;  // what is wrong with the picture, empty when nothing is
};
using YuvPictureConstPtr = std::shared_ptr<const YuvPicture>;

}  // namespace qel::mjpeg
