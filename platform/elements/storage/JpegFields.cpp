#include "elements/storage/JpegFields.h"

#include <cstring>
#include <string_view>

#include "elements/jpeg/JpegMarkers.h"

namespace qel {

namespace {

bool StartsWith(std::span<const uint8_t> segment, std::string_view name) {
  return segment.size() > name.size() && std::memcmp(segment.data(), name.data(), name.size()) == 0;
}

FieldPolarity ReadPolarity(std::span<const uint8_t> app0) {
  constexpr std::string_view kName = "AVI1";
  if (!StartsWith(app0, kName))
    return FieldPolarity::Frame;
  const uint8_t polarity = app0[kName.size()];
  return polarity > 2 ? FieldPolarity::Frame : FieldPolarity{polarity};
}

// Densities without a unit are the shape of a pixel.
void TakeAspect(std::span<const uint8_t> app0, JpegFacts& facts) {
  constexpr size_t kUnitAt = 7;
  if (!StartsWith(app0, std::string_view("JFIF\0", 5)) || app0.size() < kUnitAt + 5 ||
      app0[kUnitAt] != 0)
    return;
  facts.pixelAspectWidth = app0[kUnitAt + 1] << 8 | app0[kUnitAt + 2];
  facts.pixelAspectHeight = app0[kUnitAt + 3] << 8 | app0[kUnitAt + 4];
}

}  // namespace

std::optional<JpegFacts> ReadJpegFacts(std::span<const uint8_t> bytes) {
  JpegFacts facts;
  JpegMarkers markers(FromStartOfImage(bytes));
  while (markers.Next() && markers.Marker() != kJpegStartOfScan &&
         markers.Marker() != kJpegEndOfImage) {
    const uint8_t marker = markers.Marker();
    const std::span<const uint8_t> segment = markers.TakeSegment();
    if (marker == kJpegApp0 && facts.polarity == FieldPolarity::Frame)
      facts.polarity = ReadPolarity(segment);
    if (marker == kJpegApp0)
      TakeAspect(segment, facts);
    if (IsJpegFrameHeader(marker) && segment.size() >= 5) {  // precision, height, width
      facts.height = segment[1] << 8 | segment[2];
      facts.width = segment[3] << 8 | segment[4];
      return facts;
    }
  }
  return std::nullopt;
}

std::optional<size_t> FindSecondPicture(std::span<const uint8_t> sample) {
  const size_t skipped = sample.size() - FromStartOfImage(sample).size();
  JpegMarkers markers(sample.subspan(skipped));
  int pictures = 0;
  bool insidePicture = false;
  while (markers.Next()) {
    if (markers.Marker() == kJpegStartOfImage && ++pictures == 2)
      return skipped + markers.Offset();
    if (markers.Marker() == kJpegStartOfImage)
      insidePicture = true;
    if (markers.Marker() == kJpegEndOfImage)
      insidePicture = false;
    if (insidePicture)  // garbage between pictures has no segments to step over
      markers.TakeSegment();
  }
  return std::nullopt;
}

}  // namespace qel
