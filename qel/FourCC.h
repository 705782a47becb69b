#pragma once

#include <cstdint>

namespace qel {

constexpr uint32_t PackFourCC(char a, char b, char c, char d) {
  return uint32_t(uint8_t(a)) | uint32_t(uint8_t(b)) << 8 | uint32_t(uint8_t(c)) << 16 |
         uint32_t(uint8_t(d)) << 24;
}

// Pixel formats; the value is the four characters packed little-endian. An element takes some of
// them: docs/elements.md has those of the motion-JPEG decoder, and their layouts.
enum FourCC : uint32_t {
  FourCC_undefined = 0,
  FourCC_Y800 = PackFourCC('Y', '8', '0', '0'),
  FourCC_YUYV = PackFourCC('Y', 'U', 'Y', 'V'),
  FourCC_YU2F = PackFourCC('Y', 'U', '2', 'F'),
  FourCC_YVYU = PackFourCC('Y', 'V', 'Y', 'U'),
  FourCC_UYVY = PackFourCC('U', 'Y', 'V', 'Y'),
  FourCC_V210 = PackFourCC('V', '2', '1', '0'),
  FourCC_UY16 = PackFourCC('U', 'Y', '1', '6'),
  FourCC_YV12 = PackFourCC('Y', 'V', '1', '2'),
  FourCC_YV16 = PackFourCC('Y', 'V', '1', '6'),
  FourCC_I420 = PackFourCC('I', '4', '2', '0'),
  FourCC_I422 = PackFourCC('I', '4', '2', '2'),
  FourCC_YY2F = PackFourCC('Y', 'Y', '2', 'F'),
  FourCC_BGR3 = PackFourCC('B', 'G', 'R', '3'),
  FourCC_BGRA = PackFourCC('B', 'G', 'R', 'A'),
  FourCC_RGB3 = PackFourCC('R', 'G', 'B', '3'),
  FourCC_RGBA = PackFourCC('R', 'G', 'B', 'A'),
};

static_assert(FourCC_Y800 == 808466521);

}  // namespace qel
