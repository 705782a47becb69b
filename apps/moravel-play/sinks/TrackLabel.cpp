#include "sinks/TrackLabel.h"

#include "command/TrackArgument.h"

namespace Moravel::Play {

namespace {

// Empty for a file: its number in the embedded server means nothing to people.
std::string ServerNumber(const Track& track) {
  return ParseTrackArgument(track.name).remoteId ? "T" + std::to_string(track.id.Id()) : "";
}

}  // namespace

std::string FileLabel(const Track& track) {
  const std::string number = ServerNumber(track);
  return "track" + std::to_string(track.index) + (number.empty() ? "" : "-" + number);
}

std::string CaptionLabel(const Track& track) {
  const std::string number = ServerNumber(track);
  return number.empty() ? "track " + std::to_string(track.index) : number;
}

}  // namespace Moravel::Play
