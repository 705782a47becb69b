#include "elements/jpeg/JpegMarkers.h"

#include <algorithm>
#include <cstring>

namespace qel {

namespace {

constexpr uint8_t kPrefix = 0xFF;

bool StandsAlone(uint8_t marker) {
  return marker <= kJpegTemporary || (marker >= kJpegFirstRestart && marker <= kJpegEndOfImage);
}

// Where the first prefix from there on is that has a byte behind it; the size when there is none.
size_t FindPrefix(std::span<const uint8_t> bytes, size_t from) {
  if (from + 1 >= bytes.size())
    return bytes.size();
  const auto* const found = static_cast<const uint8_t*>(
      std::memchr(bytes.data() + from, kPrefix, bytes.size() - from - 1));
  return found == nullptr ? bytes.size() : static_cast<size_t>(found - bytes.data());
}

}  // namespace

bool IsJpegFrameHeader(uint8_t marker) {
  return marker >= kJpegFirstFrame && marker <= kJpegLastFrame && marker != kJpegHuffmanTables &&
         marker != kJpegExtensions && marker != kJpegArithmeticConditioning;
}

std::span<const uint8_t> FromStartOfImage(std::span<const uint8_t> bytes) {
  for (size_t at = FindPrefix(bytes, 0); at < bytes.size(); at = FindPrefix(bytes, at + 1)) {
    if (bytes[at + 1] == kJpegStartOfImage)
      return bytes.subspan(at);
  }
  return bytes;
}

bool JpegMarkers::Next() {
  while ((at_ = FindPrefix(bytes_, at_)) < bytes_.size()) {
    const uint8_t marker = bytes_[++at_];
    if (marker == 0 || marker == kPrefix ||
        (marker >= kJpegFirstRestart && marker <= kJpegLastRestart))
      continue;
    marker_ = marker;
    ++at_;
    return true;
  }
  return false;
}

std::span<const uint8_t> JpegMarkers::TakeSegment() {
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

}  // namespace qel
