#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "playing/SampleCache.h"
#include "playing/Statistics.h"
#include "tracks/Track.h"
#include "tracks/TrackDecoders.h"

namespace Moravel::Play {

// All that plays one track.
struct PlayingTrack {
  PlayingTrack(Track track, std::shared_ptr<ServerStatistics> serverStatistics,
               std::shared_ptr<ServingConnections> connections)
      : facts(std::move(track)),
        statistics(facts.sizes.size()),
        server(std::move(serverStatistics)),
        serving(std::move(connections)) {}

  const Track facts;
  TrackStatistics statistics;
  const std::shared_ptr<ServerStatistics> server;
  const std::shared_ptr<ServingConnections> serving;
  SampleCache cache;
  std::shared_ptr<DecodersOfWorkers> decoders;  // which tracks of the same pictures share

  // Where the orders of the track stand; the order schedule's.
  struct Ordering {
    int64_t next = 0;  // position
    int waiting = 0;   // samples that are ordered and not yet decoded
    int window = 1;
    bool closed = false;                  // no more orders
    std::chrono::microseconds played{0};  // that the ordered samples last, to compare with others

    // In real time.
    std::optional<Clock::time_point> clockStart;
    bool isBehind = false;      // what is ordered now would come too late
    Clock::duration catchUp{};  // that the last late picture took from its order
    int64_t resumed = 0;        // the position at which they last did
  };
  Ordering ordering;
};

// Now.
Moment MomentOf(const PlayingTrack& track, const WorkerStatistics& workers);
// The track's time goes on until now. Under the lock of its orders.
void Extend(TrackStatistics& statistics, const Moment& now);

// In real time: a sample that is not shown, as its picture would come too late.
void CountDropped(PlayingTrack& track, int64_t sample);

}  // namespace Moravel::Play
