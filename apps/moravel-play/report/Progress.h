#pragma once

#include <vector>

#include "tracks/TrackSetup.h"

namespace Moravel::Play {

// A bar in the last line of the terminal. Used by one thread.
class Progress {
 public:
  Progress(std::vector<PlayingTrack*> tracks, bool wanted);
  // Takes the bar away.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Draw();

 private:
  const std::vector<PlayingTrack*> tracks_;
  const bool shown_;
  const Clock::time_point start_ = Clock::now();
};

}  // namespace Moravel::Play
