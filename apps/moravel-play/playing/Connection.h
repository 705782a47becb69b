#pragma once

#include <map>
#include <stop_token>
#include <string>
#include <vector>

#include "Player/QELPreloader.h"
#include "playing/FailuresInARow.h"
#include "playing/Playback.h"
#include "tracks/TrackSource.h"

namespace Moravel::Play {

// Where a connection belongs, and the tracks that it opens.
struct ConnectionPlan {
  size_t lane = 0;
  int number = 0;       // in the lane
  int connections = 1;  // of the lane
  std::vector<NamedTrack> toOpen;
  std::shared_ptr<ServerStatistics> statistics;
  std::shared_ptr<ServingConnections> serving;
};

// One source of a storage server with a preloader of its own: opens tracks, one after the other,
// and preloads samples as the schedule says, beginning with the first track that is open. Runs in a
// thread of its own.
class Connection {
 public:
  Connection(ConnectionPlan plan, const Playback& playback);

  // Returns when nothing is left to be ordered, or after the stop.
  void Run(std::stop_token stop);

 private:
  struct Answer {
    enum class Failure { None, Passing, Lasting, OfTheFile };

    Failure failure = Failure::None;
    std::string reason;  // empty: the library has logged it
  };

  void Open(const NamedTrack& named);
  void Preload(const Job& job, std::stop_token stop);
  Answer Order(PlayingTrack& track, int64_t position);
  void AddAsking(Clock::duration time);
  void SelectSource(const Player::TrackId& id);
  void Pause(std::chrono::milliseconds time, std::stop_token stop);
  void CountFailure(PlayingTrack& track, Answer::Failure failure, Clock::duration took,
                    std::stop_token stop);
  void GiveUp(PlayingTrack& track, int failures);

  const ConnectionPlan plan_;
  const Playback& playback_;
  TrackSource source_;
  Player::QELPreloader preloader_;
  bool hasSource_ = false;                                         // the preloader
  FailuresInARow failures_;                                        // of the server
  std::map<const PlayingTrack*, FailuresInARow> failuresOfTrack_;  // whose last order failed
};

}  // namespace Moravel::Play
