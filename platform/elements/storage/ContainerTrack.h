#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "elements/storage/ReadAheadCache.h"
#include "elements/storage/SamplePlaces.h"
#include "elements/storage/SampleTimes.h"
#include "elements/storage/TrackFacts.h"

namespace qel {

// What a file says of its fields.
struct FileFields {
  bool isBottomShownFirst = false;
  bool isBottomStoredFirst = false;
};

// What a container says of its motion-JPEG track, before any picture is looked at.
struct ContainerTrack {
  TrackFacts facts;  // width and height are those of the header
  std::optional<FileFields> fields;
  bool hasPixelAspect = false;
  // Each sample holds one field only: two make a frame.
  bool isFieldEach = false;

  SamplePlaces places;
  SampleTimes times;
  int64_t timeUnits = 1;  // of `times` in each `timeUnitsPer` seconds
  int64_t timeUnitsPer = 1;

  int chunkHeaderBytes = 0;  // in front of every payload
  int streamNumber = 0;
};

// Both throw QELRuntimeError that says what is wrong with the file, and how to mend it.
ContainerTrack ReadAviTrack(ReadAheadCache& file);
ContainerTrack ReadMovTrack(ReadAheadCache& file);

// Takes the shape of a pixel unless it cannot be.
void SetPixelAspect(ContainerTrack& track, uint64_t width, uint64_t height);

// "the header announces 100 pictures, the index has 37"
std::string TooFewIndexed(int64_t announced, int64_t indexed);

// Whether files that are named so hold motion JPEG as the decoder takes it, ignoring case.
bool IsMotionJpegCode(std::string_view code);
// The error of a file without a motion-JPEG stream, that names the codecs it has.
[[noreturn]] void ThrowNoMotionJpeg(const std::vector<std::string>& codes);

}  // namespace qel
