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
  PlayingTrack(Track track, std::shared_ptr<ServerStatistics> serverStatistics)
      : facts(std::move(track)), statistics(facts.sizes.size()), server(serverStatistics) {}

  const Track facts;
  TrackStatistics statistics;
  const std::shared_ptr<ServerStatistics> server;
  SampleCache cache;
  std::shared_ptr<DecodersOfWorkers> decoders;  // which tracks of the same pictures share

  // Where the orders of the track stand; the order schedule's.
  struct Ordering {
    int64_t next = 0;  // position
    int waiting = 0;   // samples that are ordered and not yet decoded
    int window = 1;
    bool closed = false;  // no more orders
    std::optional<Clock::time_point> clockStart;
  };
  Ordering ordering;
};

}  // namespace Moravel::Play
