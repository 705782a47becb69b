#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Player/QELPreloader.h"
#include "command/Options.h"
#include "playing/SampleCache.h"
#include "playing/Statistics.h"
#include "storage-server/StorageServer.h"
#include "tracks/NamedTracks.h"
#include "tracks/Track.h"
#include "tracks/TrackDecoders.h"

namespace Moravel::Play {

// All that plays one track.
struct PlayingTrack {
  PlayingTrack(Track track, int window)
      : facts(std::move(track)), statistics(facts.sizes.size()), cache(window) {}

  const Track facts;
  TrackStatistics statistics;
  SampleCache cache;
  std::vector<TrackDecoders> decodersOfWorker;
};

// A storage server with its one source, and its tracks.
struct PlayingServer {
  std::unique_ptr<Player::QELPreloader> preloader;
  std::vector<std::unique_ptr<PlayingTrack>> tracks;
};

// The tracks that could be opened, and those that could not. The embedded server serves the files.
struct Setup {
  std::unique_ptr<Player::StorageServer> fileServer;
  std::vector<PlayingServer> servers;  // only such as have tracks
  std::vector<PlayingTrack*> tracks;   // all of them, in the order of the command line
  std::vector<FailedTrack> failed;     // in that order
};

// Opens everything, all servers at the same time. A track that cannot be opened is a failed track;
// throws UsageError when the options ask for nothing of a track.
Setup OpenTracks(const Options& options);

}  // namespace Moravel::Play
