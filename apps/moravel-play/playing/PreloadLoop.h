#pragma once

#include <map>
#include <stop_token>

#include "playing/WorkQueue.h"
#include "tracks/TrackSetup.h"

namespace Moravel::Play {

// Preloads the tracks of one server, one sample of each in turn, as far ahead as their windows
// allow. Runs in a thread of its own, which alone uses the server's preloader.
class PreloadLoop {
 public:
  PreloadLoop(PlayingServer& server, WorkQueue& queue) : server_(server), queue_(queue) {}

  // Returns when all samples have been ordered, or after the stop.
  void Run(std::stop_token stop);

 private:
  struct Answer;

  // False when the track is not to be asked again.
  bool PreloadOne(PlayingTrack& track, int64_t position, std::stop_token stop);
  Answer Order(PlayingTrack& track, const Time::TimePoint& time);
  bool GoOnAfterFailure(PlayingTrack& track, int64_t position, std::stop_token stop);

  PlayingServer& server_;
  WorkQueue& queue_;
  int failuresInARow_ = 0;                              // of the server
  std::map<const PlayingTrack*, int> failuresOfTrack_;  // of those whose last order failed
};

}  // namespace Moravel::Play
