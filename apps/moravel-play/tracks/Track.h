#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Player/SampleRate.h"
#include "Player/TrackId.h"
#include "command/Options.h"
#include "elements/storage/TrackIndex.h"
#include "tracks/PlaySequence.h"

namespace Moravel::Play {

// What is known of a track once it is open, and what is played of it. Constant from then on.
struct Track {
  int index = 0;     // from 1, in the order of the command line
  std::string name;  // as the user gave it
  Player::TrackId id;

  Size ownSize;  // of a frame, or of a field of interlaced material
  bool interlaced = false;
  bool bottomFirst = false;  // the bottom field is the earlier one
  int64_t sampleCount = 0;
  Player::SampleRate sampleRate;  // nominal, where the rate varies
  // Where its samples are and when they are shown; empty when nobody knows more than the above.
  std::shared_ptr<const qel::TrackIndex> stored;
  std::vector<std::string> problems;  // what the file lacks or holds wrong, a line each

  PlaySequence sequence;
  int picturesPerSample = 1;  // 2 where both fields are shown
  bool weaves = false;        // the fields of a sample make one picture
  std::vector<Size> sizes;    // of the pictures, largest first; none: nothing is decoded

  // Of what is decoded for a picture: of one field, where two are woven.
  Size DecodedSize(const Size& size) const {
    return {size.width, weaves ? size.height / 2 : size.height};
  }
  std::vector<Size> DecodedSizes() const {
    std::vector<Size> decoded;
    for (const Size& size : sizes)
      decoded.push_back(DecodedSize(size));
    return decoded;
  }

  Player::SampleRate FieldRate() const {
    return {sampleRate.Numerator() * 2, sampleRate.Denominator()};
  }
  // Of the whole track, where the rate varies to a millisecond of its duration.
  Player::SampleRate AverageRate() const;
  // At which the pictures take the track's time when each is shown as long as every other.
  Player::SampleRate PictureRate() const {
    const Player::SampleRate rate = AverageRate();
    return {rate.Numerator() * picturesPerSample, rate.Denominator()};
  }
  // The pictures of a sample in the order in which they are played: whether the bottom field is.
  bool IsBottom(int picture) const {
    return picturesPerSample == 2 && (picture == 1) != (bottomFirst != sequence.IsReverse());
  }
  // A field shows every second row of the frame.
  Size FrameSize() const { return {ownSize.width, ownSize.height * (interlaced ? 2 : 1)}; }
  // Of the pictures that are played, where no other size is asked for.
  Size PictureSize() const { return weaves ? FrameSize() : ownSize; }
  // The shape in which the pictures are meant to be seen, whatever their size, as width to height:
  // pixels need not be squares.
  std::pair<int64_t, int64_t> DisplayShape() const {
    const int64_t aspectWidth = stored ? stored->Facts().pixelAspectWidth : 1;
    const int64_t aspectHeight = stored ? stored->Facts().pixelAspectHeight : 1;
    return {FrameSize().width * aspectWidth, FrameSize().height * aspectHeight};
  }

  // Samples do not all last equally long.
  bool IsVariableRate() const;
  // The rate of an order for a sample: its times are whole numbers of periods of that rate.
  Player::SampleRate OrderRate() const;
  // When a sample begins. Behind the end, samples go on at the nominal rate.
  Time::TimePoint TimeOf(int64_t sampleNumber) const;
  // How long it is shown, in ticks of Time::TimePoint.
  int64_t TicksOf(int64_t sampleNumber) const;
  // Whether no time is this sample's alone, as the next one begins at the same: nothing can ask for
  // it.
  bool LastsNoTime(int64_t sampleNumber) const {
    return TimeOf(sampleNumber) == TimeOf(sampleNumber + 1);
  }
  // The sample that is shown at a time.
  int64_t SampleAt(const Time::TimePoint& time) const;

  // The bytes that a sample holds in memory, as far as it is known.
  int64_t BytesOf(int64_t sampleNumber) const;
  // When the sample of a position is to be shown, after the one at position 0. At random, each is
  // shown as long as every other.
  std::chrono::microseconds PlayTime(int64_t position) const;
};

// "25 fps", "29.97 fps".
std::string ToRateText(const Player::SampleRate& rate);
// Of a whole track: the same, or "variable, 21.543 fps on average".
std::string ToRateText(const Track& track);
// What went wrong with a track, for a line that begins with the track's name: without its id.
std::string ReasonOf(const std::exception& error, const Player::TrackId& id);

}  // namespace Moravel::Play
