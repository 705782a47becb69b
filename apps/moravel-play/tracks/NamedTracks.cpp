#include "tracks/NamedTracks.h"

#include <filesystem>
#include <stdexcept>

namespace Moravel::Play {

namespace {

void CheckFile(const std::string& name) {
  const auto status = std::filesystem::status(name);
  if (!std::filesystem::exists(status))
    throw std::runtime_error("no such file (a track of a server is ADDRESS:PORT:Tn)");
  if (!std::filesystem::is_regular_file(status))
    throw std::runtime_error("is not a regular file: a motion-JPEG file (AVI or MOV) is needed");
}

}  // namespace

NamedTracks NameTracks(const std::vector<TrackArgument>& arguments) {
  NamedTracks named;
  int index = 0;
  for (const TrackArgument& argument : arguments) {
    ++index;
    if (argument.remoteId) {
      named.servers[argument.remoteId->StorageId()].push_back(
          {index, argument.text, *argument.remoteId});
      continue;
    }
    try {
      CheckFile(argument.text);
      const Player::StorageServer::Options loopback;
      if (!named.fileServer)
        named.fileServer = std::make_unique<Player::StorageServer>(loopback);
      const int64_t id = named.fileServer->AddTrack(argument.text);
      const Player::StorageId storage(loopback.address, named.fileServer->Port());
      named.servers[storage].push_back({index, argument.text, Player::TrackId(storage, id)});
    } catch (const std::exception& error) {
      named.failed[index] = {argument.text, error.what()};
    }
  }
  return named;
}

}  // namespace Moravel::Play
