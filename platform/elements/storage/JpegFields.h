#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// What the storage source needs to know about the JPEG pictures inside a sample, found by walking
// markers (ITU-T T.81, annex B) and never by decoding. Pure functions: any thread, any bytes; they
// read inside the given bytes only and allocate nothing.
namespace qel {

// Which field a picture says it is, in the APP0 "AVI1" segment of motion-JPEG files ("OpenDML AVI
// File Format Extensions", 1996, appendix "Motion JPEG DIB").
enum class FieldPolarity : uint8_t { Frame = 0, Odd = 1, Even = 2 };

struct JpegFacts {
  int width = 0;
  int height = 0;
  FieldPolarity polarity = FieldPolarity::Frame;
  int pixelAspectWidth = 0;  // 0: the picture does not say (JFIF 1.02)
  int pixelAspectHeight = 0;
};

// The facts of the first picture in `bytes`, which may end in the middle of it; nothing when its
// frame header is not among them.
std::optional<JpegFacts> ReadJpegFacts(std::span<const uint8_t> bytes);

// Where the second picture of a sample starts, whatever lies between the two; nothing when there
// is only one.
std::optional<size_t> FindSecondPicture(std::span<const uint8_t> sample);

}  // namespace qel
