#pragma once

#include "playing/TrackList.h"

namespace Moravel::Play {

// A bar in the last line of the terminal. Used by one thread.
class Progress {
 public:
  Progress(const TrackList& tracks, bool wanted);
  // Takes the bar away.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void Draw();

 private:
  const TrackList& tracks_;
  const bool shown_;
  const Clock::time_point start_ = Clock::now();
};

}  // namespace Moravel::Play
