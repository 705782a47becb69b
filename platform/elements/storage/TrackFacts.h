#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qel/MediaTime.h"

// What is known of a track beside where its pictures lie and when they are shown.
namespace qel {

enum class FieldOrder { Progressive, TopFirst, BottomFirst };

// The time code of a picture (SMPTE ST 12-1), as a count of pictures.
struct Timecode {
  int64_t frame = 0;  // pictures since 00:00:00:00
  int framesPerSecond = 25;
  bool isDropFrame = false;

  // Of a time code as it is written; nothing when it cannot be one. `rate` is the track's.
  static std::optional<Timecode> FromParts(int64_t hours, int64_t minutes, int64_t seconds,
                                           int64_t frame, bool isDropFrame, const EditRate& rate);

  // "HH:MM:SS:FF" of the picture that comes so many later; ";" before FF when frame numbers are
  // dropped. Begins again after 24 hours.
  std::string Text(int64_t later = 0) const;
};

// A value. All of it belongs to the file as it was when its index was read.
struct TrackFacts {
  std::string container;  // "AVI", "MOV"

  int width = 0;  // of one coded picture: of a frame, or of one field
  int height = 0;
  // Of a pixel of the frame. 1:1 where nobody says.
  uint32_t pixelAspectWidth = 1;
  uint32_t pixelAspectHeight = 1;

  FieldOrder fieldOrder = FieldOrder::Progressive;  // which is shown first
  bool isBottomStoredFirst = false;
  std::string fieldOrderFrom;  // how it is known, in words; empty for progressive material

  // Times of the index count edit units of `timeRate` a second, reduced: one a sample when the rate
  // is constant. `nominalRate` is what the track is called by, in samples a second.
  EditRate timeRate{25, 1};
  EditRate nominalRate{25, 1};
  bool isVariableRate = false;

  std::optional<Timecode> timecode;  // of the first picture

  int64_t announcedSamples = 0;  // by the file's headers; 0 where they do not say
  int64_t repeats = 0;           // empty chunks that let the picture before them last longer
  int64_t missing = 0;           // samples without bytes: there is nothing to show
  // What is not as it should be and yet can be played, each in one line, such as "the header
  // announces 100 pictures, the index has 37".
  std::vector<std::string> problems;

  // What reading the index cost.
  int64_t indexRequests = 0;
  int64_t indexBytes = 0;
};

}  // namespace qel
