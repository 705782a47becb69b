#include "elements/storage/JpegFields.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace qel {

namespace {

constexpr uint8_t kStartOfImage = 0xD8;
constexpr uint8_t kEndOfImage = 0xD9;
constexpr uint8_t kStartOfScan = 0xDA;
constexpr uint8_t kApp0 = 0xE0;

constexpr bool IsRestart(uint8_t marker) {
  return marker >= 0xD0 && marker <= 0xD7;
}

constexpr bool IsFrameHeader(uint8_t marker) {
  return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

// Restart markers, start and end of image, TEM and stuffed bytes have no segment behind them.
constexpr bool StandsAlone(uint8_t marker) {
  return marker <= 0x01 || (marker >= 0xD0 && marker <= kEndOfImage);
}

// Goes from marker to marker. Bytes that belong to none (entropy-coded data with its stuffing,
// padding, garbage) are passed over.
class MarkerWalker {
 public:
  explicit MarkerWalker(std::span<const uint8_t> bytes) : bytes_(bytes) {}

  // The next marker, false at the end of the bytes.
  bool Next() {
    while (at_ + 1 < bytes_.size()) {
      const auto* const found = static_cast<const uint8_t*>(
          std::memchr(bytes_.data() + at_, 0xFF, bytes_.size() - at_ - 1));
      if (found == nullptr)
        break;
      at_ = static_cast<size_t>(found - bytes_.data()) + 1;
      if (bytes_[at_] == 0x00 || bytes_[at_] == 0xFF || IsRestart(bytes_[at_]))
        continue;
      marker_ = bytes_[at_++];
      return true;
    }
    at_ = bytes_.size();
    return false;
  }

  uint8_t Marker() const { return marker_; }
  size_t MarkerOffset() const { return at_ - 2; }

  // What the segment of the current marker holds, as far as the bytes go; the walk goes on behind
  // it. A length that cannot be (below its own two bytes) stands for no segment.
  std::span<const uint8_t> TakeSegment() {
    if (StandsAlone(marker_) || bytes_.size() - at_ < 2)
      return {};
    const size_t length = static_cast<size_t>(bytes_[at_] << 8 | bytes_[at_ + 1]);
    if (length < 2)
      return {};
    const size_t end = std::min(at_ + length, bytes_.size());
    const auto segment = bytes_.subspan(at_ + 2, end - at_ - 2);
    at_ = end;
    return segment;
  }

 private:
  const std::span<const uint8_t> bytes_;
  size_t at_ = 0;
  uint8_t marker_ = 0;
};

FieldPolarity ReadPolarity(std::span<const uint8_t> app0) {
  constexpr std::string_view kName = "AVI1";
  if (app0.size() <= kName.size() || std::memcmp(app0.data(), kName.data(), kName.size()) != 0)
    return FieldPolarity::Frame;
  const uint8_t polarity = app0[kName.size()];
  return polarity > 2 ? FieldPolarity::Frame : FieldPolarity{polarity};
}

}  // namespace

std::optional<JpegFacts> ReadJpegFacts(std::span<const uint8_t> bytes) {
  JpegFacts facts;
  MarkerWalker walker(bytes);
  while (walker.Next() && walker.Marker() != kStartOfScan && walker.Marker() != kEndOfImage) {
    const uint8_t marker = walker.Marker();
    const std::span<const uint8_t> segment = walker.TakeSegment();
    if (marker == kApp0 && facts.polarity == FieldPolarity::Frame)
      facts.polarity = ReadPolarity(segment);
    if (IsFrameHeader(marker) && segment.size() >= 5) {  // precision, height, width
      facts.height = segment[1] << 8 | segment[2];
      facts.width = segment[3] << 8 | segment[4];
      return facts;
    }
  }
  return std::nullopt;
}

std::optional<size_t> FindSecondPicture(std::span<const uint8_t> sample) {
  MarkerWalker walker(sample);
  int pictures = 0;
  bool insidePicture = false;
  while (walker.Next()) {
    if (walker.Marker() == kStartOfImage && ++pictures == 2)
      return walker.MarkerOffset();
    if (walker.Marker() == kStartOfImage)
      insidePicture = true;
    if (walker.Marker() == kEndOfImage)
      insidePicture = false;
    if (insidePicture)  // garbage between pictures has no segments to step over
      walker.TakeSegment();
  }
  return std::nullopt;
}

}  // namespace qel
