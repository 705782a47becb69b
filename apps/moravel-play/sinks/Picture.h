#pragma once

#include <cstdint>

#include "command/Options.h"
#include "qel/Samples.h"
#include "tracks/Track.h"

namespace Moravel::Play {

// What became of a picture. Only the first two have an image.
enum class PictureState {
  Fine,
  Damaged,      // can be shown, in part
  Undecodable,  // was read, but no picture came of it
  Missing,      // the track holds nothing at that time
  Unreadable,   // the server did not give it
  Late,         // it would have come after its time
};

// "damaged" and so on, as reports say it.
const char* NameOf(PictureState state);

// One picture of the playback, as it goes to those who write it.
struct Picture {
  const Track& track;
  Size size;
  int64_t position;      // of its sample in the track's play sequence
  int64_t sampleNumber;  // in the track
  bool bottom;           // the bottom field of interlaced material
  PictureState state;
  qel::VideoSampleConstPtr image;  // shared, never changed; empty as the state says

  // Among all pictures of its track and size, from 0.
  int64_t PlayIndex() const { return position * track.picturesPerSample + IndexInSample(); }
  int IndexInSample() const { return bottom == track.IsBottom(0) ? 0 : 1; }
};

// "" of a frame, or which field it is.
inline const char* FieldName(const Picture& picture) {
  if (!picture.track.interlaced || picture.track.weaves)
    return "";
  return picture.bottom ? "bottom" : "top";
}

// One sample of the playback as it came from its server: compressed.
struct StoredSample {
  const Track& track;
  int64_t sampleNumber;  // in the track
  qel::SampleContainerConstPtr container;
};

// Writes pictures somewhere. Each track begins once, before its first picture and maybe while
// others play; tracks outlive the sink. Write may be called from several threads at once, with
// pictures in almost any order; Finish once, after the last of them. WriteStored comes before the
// pictures of the sample. What cannot be written is an OutputError, or ClosedPipe.
class IPictureSink {
 public:
  virtual ~IPictureSink() = default;

  virtual void Begin(const Track& track) = 0;
  virtual void WriteStored(const StoredSample&) {}
  virtual void Write(const Picture& picture) = 0;
  virtual void Finish() = 0;
};

}  // namespace Moravel::Play
