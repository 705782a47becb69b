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

// What has the form ADDRESS:PORT:Tn (an IPv6 address in brackets) is a track of a server, all else
// a file; a file of such a name can be written with its folder ("./a:1:T2").
// Throws UsageError for a port or a track number that is out of range.
TrackArgument ParseTrackArgument(const std::string& text);

}  // namespace Moravel::Play
