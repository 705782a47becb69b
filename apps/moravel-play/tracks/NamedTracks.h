#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Player/TrackId.h"
#include "command/TrackArgument.h"
#include "storage-server/StorageServer.h"

namespace Moravel::Play {

// A track of the command line and where it is.
struct NamedTrack {
  int index;  // from 1, in the order of the command line
  std::string name;
  Player::TrackId id;
};

struct FailedTrack {
  std::string name;
  std::string reason;
};

// Where the tracks of the command line are. The embedded server serves the files.
struct NamedTracks {
  std::unique_ptr<Player::StorageServer> fileServer;  // empty without files
  std::map<Player::StorageId, std::vector<NamedTrack>> servers;
  std::map<int, FailedTrack> failed;  // files that cannot be served, by the index of the track
};

NamedTracks NameTracks(const std::vector<TrackArgument>& arguments);

}  // namespace Moravel::Play
