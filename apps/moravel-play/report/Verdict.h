#pragma once

#include <string>

#include "playing/PlayingTrack.h"

namespace Moravel::Play {

// Whether a track can be played in the time that its pictures last, beside all that played with it.
struct Verdict {
  enum class Limit { None, Server, Decoding, Writing };

  double seconds = 0;           // of the track alone: from its first order to its last sample
  double samplesPerSecond = 0;  // in that time
  double neededPerSecond = 0;   // to show those samples as long as each is to be shown
  double speed = 0;             // the one in terms of the other; 0: too little to tell
  bool plays = false;
  Limit limit = Limit::None;  // of those that do not play
  double limitShare = 0;      // of those seconds, 0 to 1
  std::string text;           // one line
};

Verdict Judge(const PlayingTrack& track, int jobs, bool realtime);

// "server" and so on.
const char* NameOf(Verdict::Limit limit);

}  // namespace Moravel::Play
