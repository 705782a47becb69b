#pragma once

#include <memory>
#include <stop_token>
#include <string>
#include <vector>

#include "live/LiveConnection.h"
#include "tracks/NamedTracks.h"
#include "tracks/Track.h"

namespace Moravel::Play {

// A storage server with its tracks, opened through one reader.
struct LiveServer {
  std::string name;
  std::vector<Track> tracks;
  std::unique_ptr<LiveConnection> reader;
};

// The tracks that could be opened, each server's through one connection, and those that could not.
struct LiveTracks {
  std::unique_ptr<Player::StorageServer> fileServer;
  std::vector<LiveServer> servers;  // only such as have tracks
  std::vector<FailedTrack> failed;  // in the order of the command line
};
// Opens everything, all servers at the same time, until the stop is requested.
LiveTracks OpenLiveTracks(const std::vector<TrackArgument>& arguments, std::stop_token stop);

}  // namespace Moravel::Play
