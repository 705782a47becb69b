#pragma once

#include <optional>
#include <string>

#include "Player/TrackId.h"

namespace Moravel::Play {

// A track as the command line names it: a file, or the track of a server that runs elsewhere.
struct TrackArgument {
  std::string text;                         // as it was typed
  std::optional<Player::TrackId> remoteId;  // empty: `text` is a file
};

// What has the form ADDRESS:PORT:Tn or http://ADDRESS:PORT/tracks/n is a track of a server, all
// else a file; a file of such a name can be written with its folder ("./a:1:T2"). An IPv6 address
// stands in brackets; without a port, an http address means port 80. Throws UsageError for nothing
// at all, for an http address of another form, and for a port or a track number that is out of
// range.
TrackArgument ParseTrackArgument(const std::string& text);

}  // namespace Moravel::Play
