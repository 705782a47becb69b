#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <vector>

#include "Player/SampleRate.h"
#include "Player/TrackId.h"
#include "command/Options.h"
#include "tracks/PlaySequence.h"

namespace Moravel::Play {

// What is known of a track once it is open, and what is played of it. Constant from then on.
struct Track {
  int index = 0;     // from 1, in the order of the command line
  std::string name;  // as the user gave it
  Player::TrackId id;

  Size ownSize;  // of a frame, or of a field of interlaced material
  bool interlaced = false;
  int64_t sampleCount = 0;
  Player::SampleRate sampleRate;

  PlaySequence sequence;
  int picturesPerSample = 1;  // 2 where both fields are shown
  std::vector<Size> sizes;    // largest first

  Player::SampleRate FieldRate() const {
    return {sampleRate.Numerator() * 2, sampleRate.Denominator()};
  }
  Player::SampleRate PictureRate() const {
    return picturesPerSample == 2 ? FieldRate() : sampleRate;
  }
  // The shape in which the pictures are meant to be seen, whatever their size: a field shows every
  // second row of the frame.
  Size DisplayShape() const { return {ownSize.width, ownSize.height * (interlaced ? 2 : 1)}; }

  Time::TimePoint TimeOf(int64_t sampleNumber) const {
    return Time::TimePoint().FromRatio(static_cast<uint64_t>(sampleNumber),
                                       static_cast<uint64_t>(sampleRate.Denominator()),
                                       static_cast<uint64_t>(sampleRate.Numerator()));
  }
};

// "25 fps", "29.97 fps".
std::string ToRateText(const Player::SampleRate& rate);
// What went wrong with a track, for a line that begins with the track's name: without its id.
std::string ReasonOf(const std::exception& error, const Player::TrackId& id);

}  // namespace Moravel::Play
