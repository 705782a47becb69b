#include "elements/mjpeg/JpegStructure.h"

#include <algorithm>

namespace qel::mjpeg {

namespace {

constexpr uint8_t kMarkerPrefix = 0xFF;
enum Marker : uint8_t {
  kTemporary = 0x01,
  kFirstFrame = 0xC0,
  kProgressiveFrame = 0xC2,
  kHuffmanTables = 0xC4,
  kFirstArithmeticFrame = 0xC9,
  kArithmeticConditioning = 0xCC,
  kLastFrame = 0xCF,
  kFirstRestart = 0xD0,
  kStartOfImage = 0xD8,
  kEndOfImage = 0xD9,
  kStartOfScan = 0xDA,
};

bool StandsAlone(uint8_t marker) {
  return marker == kTemporary || (marker >= kFirstRestart && marker <= kStartOfImage);
}

// Takes a picture apart into its segments, over filling and foreign bytes as decoders do.
class Segments {
 public:
  explicit Segments(std::span<const uint8_t> picture) : rest_(picture) {}

  // Goes to the next segment that has a payload; false at the end of the picture.
  bool Next() {
    do {
      if (!FindMarker())
        return false;
    } while (StandsAlone(marker_));
    if (marker_ == kEndOfImage || rest_.size() < kLengthBytes)
      return false;
    const size_t length = size_t{rest_[0]} << 8 | rest_[1];
    const size_t end = std::clamp(length, kLengthBytes, rest_.size());
    payload_ = rest_.subspan(kLengthBytes, end - kLengthBytes);
    rest_ = rest_.subspan(end);
    return true;
  }

  uint8_t CurrentMarker() const { return marker_; }
  std::span<const uint8_t> Payload() const { return payload_; }

 private:
  static constexpr size_t kLengthBytes = 2;

  bool FindMarker() {
    auto at = std::find(rest_.begin(), rest_.end(), kMarkerPrefix);
    while (at != rest_.end() && (*at == kMarkerPrefix || *at == 0)) {
      if (*at == 0)
        at = std::find(at, rest_.end(), kMarkerPrefix);
      else
        ++at;
    }
    if (at == rest_.end())
      return false;
    marker_ = *at;
    rest_ = rest_.subspan(static_cast<size_t>(at - rest_.begin()) + 1);
    return true;
  }

  std::span<const uint8_t> rest_;
  std::span<const uint8_t> payload_;
  uint8_t marker_ = 0;
};

bool IsFrame(uint8_t marker) {
  return marker >= kFirstFrame && marker <= kLastFrame && marker != kHuffmanTables &&
         marker != kArithmeticConditioning;
}

// Every scan starts with these two bytes. Others that look like it only make the count larger.
int64_t CountScanStarts(std::span<const uint8_t> picture) {
  int64_t count = 0;
  auto at = picture.begin();
  while ((at = std::find(at, picture.end(), kMarkerPrefix)) != picture.end()) {
    ++at;
    if (at != picture.end() && *at == kStartOfScan)
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
  Segments segments(picture);
  while (segments.Next()) {
    const uint8_t marker = segments.CurrentMarker();
    const std::span<const uint8_t> payload = segments.Payload();
    if (marker == kStartOfScan) {
      const bool complete = !payload.empty() && payload[0] == frameComponents;
      structure.scans = complete && !progressive ? 1 : CountScanStarts(picture);
      return structure;
    }
    if (IsFrame(marker)) {
      structure.arithmeticCoding |= marker >= kFirstArithmeticFrame;
      progressive |= marker == kProgressiveFrame;
      frameComponents = payload.size() > kFrameComponentsAt ? payload[kFrameComponentsAt] : 0;
    }
  }
  return structure;
}

}  // namespace qel::mjpeg
