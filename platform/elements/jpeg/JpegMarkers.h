#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace qel {

// Markers of a JPEG picture (ITU-T T.81, table B.1).
enum JpegMarker : uint8_t {
  kJpegTemporary = 0x01,
  kJpegFirstFrame = 0xC0,
  kJpegProgressiveFrame = 0xC2,
  kJpegHuffmanTables = 0xC4,
  kJpegExtensions = 0xC8,
  kJpegFirstArithmeticFrame = 0xC9,
  kJpegArithmeticConditioning = 0xCC,
  kJpegLastFrame = 0xCF,
  kJpegFirstRestart = 0xD0,
  kJpegLastRestart = 0xD7,
  kJpegStartOfImage = 0xD8,
  kJpegEndOfImage = 0xD9,
  kJpegStartOfScan = 0xDA,
  kJpegApp0 = 0xE0,
};

bool IsJpegFrameHeader(uint8_t marker);

// The bytes from the first start of image on: writers put padding, time stamps or the end of the
// picture before in front of it. All bytes when there is none.
std::span<const uint8_t> FromStartOfImage(std::span<const uint8_t> bytes);

// Goes from marker to marker of bytes that may be anything, and never fails. Bytes that belong to
// none (entropy-coded data with its stuffing and restarts, padding, garbage) are passed over.
// Allocates nothing; used by one thread.
class JpegMarkers {
 public:
  explicit JpegMarkers(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  // The next marker, false at the end of the bytes.
  bool Next();
  uint8_t Marker() const { return marker_; }
  size_t Offset() const { return at_ - 2; }

  // What the segment of the current marker holds, as far as the bytes go; the walk goes on behind
  // it. A length that cannot be (below its own two bytes) stands for no segment.
  std::span<const uint8_t> TakeSegment();

 private:
  const std::span<const uint8_t> bytes_;
  size_t at_ = 0;
  uint8_t marker_ = 0;
};

}  // namespace qel
