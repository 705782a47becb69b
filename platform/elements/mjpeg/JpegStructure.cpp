#include "elements/mjpeg/JpegStructure.h"

#include <algorithm>

#include "elements/jpeg/JpegMarkers.h"

namespace qel::mjpeg {

namespace {

// Every scan starts with these two bytes. Others that look like it only make the count larger.
int64_t CountScanStarts(std::span<const uint8_t> picture) {
  int64_t count = 0;
  auto at = picture.begin();
  while ((at = std::find(at, picture.end(), uint8_t{0xFF})) != picture.end()) {
    ++at;
    if (at != picture.end() && *at == kJpegStartOfScan)
      ++count;
  }
  return count;
}

}  // namespace

JpegStructure ReadJpegStructure(std::span<const uint8_t> picture) {
  constexpr size_t kFrameComponentsAt = 5;
  JpegStructure structure;
  bool progressive = false;
  int frameComponents = 0;
  JpegMarkers markers(FromStartOfImage(picture));
  while (markers.Next() && markers.Marker() != kJpegEndOfImage) {
    const uint8_t marker = markers.Marker();
    const std::span<const uint8_t> payload = markers.TakeSegment();
    if (marker == kJpegStartOfScan) {
      const bool complete = !payload.empty() && payload[0] == frameComponents;
      structure.scans = complete && !progressive ? 1 : CountScanStarts(picture);
      return structure;
    }
    if (IsJpegFrameHeader(marker)) {
      structure.arithmeticCoding |= marker >= kJpegFirstArithmeticFrame;
      progressive |= marker == kJpegProgressiveFrame;
      frameComponents = payload.size() > kFrameComponentsAt ? payload[kFrameComponentsAt] : 0;
    }
  }
  return structure;
}

}  // namespace qel::mjpeg
