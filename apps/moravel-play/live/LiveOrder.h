#pragma once

#include <compare>
#include <cstdint>
#include <string>

#include "command/Options.h"
#include "playing/Statistics.h"
#include "qel/Samples.h"

namespace Moravel::Play {

// A sample of a track, by the track's number on the command line.
struct SampleKey {
  int track = 0;
  int64_t sample = 0;

  auto operator<=>(const SampleKey&) const = default;
};

// One picture that somebody wants to see.
struct LiveOrder {
  enum class Kind {
    Show,       // now: the newest order goes first
    Play,       // in the order in which they came, and those that follow are fetched ahead
    Thumbnail,  // when nobody waits for anything else
  };

  SampleKey key;
  bool bottom = false;  // the bottom field of interlaced material
  Size size;
  Kind kind = Kind::Show;
  int64_t step = 1;  // of a playback: from this sample to the next one, negative for backward

  // Who asks. An order makes those of its lane stale that belong to an earlier generation.
  std::string lane;
  int64_t generation = 0;

  bool Supersedes(const LiveOrder& other) const {
    return lane == other.lane && generation > other.generation;
  }
};

// What comes of an order.
struct LivePicture {
  enum class State {
    Shown,
    Damaged,  // shown as far as it can be
    Missing,  // the recorder dropped it, or it has no such field
    Broken,   // there, and cannot be decoded
    Stale,    // a newer order came before it was fetched
    Failed,   // the server, or the end of the engine
  };

  State state = State::Failed;
  qel::VideoSampleConstPtr image = {};  // Shown and Damaged: I422; shared, never changed
  std::string reason = {};              // Damaged, Broken, Failed: a line for people
  bool cached = false;                  // its sample was there already
  Clock::duration latency{};            // from the order to the picture
  Clock::duration decoding{};
};

}  // namespace Moravel::Play
