#include "tracks/NamedTracks.h"

#include <filesystem>
#include <stdexcept>

namespace Moravel::Play {

namespace {

void CheckFile(const std::string& name) {
  std::error_code unreachable;
  const auto status = std::filesystem::status(name, unreachable);
  if (unreachable && status.type() == std::filesystem::file_type::none)
    throw std::runtime_error("cannot be read: " + unreachable.message());
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
    const Player::StorageServer::Options loopback;
    if (!named.fileServer)  // that it cannot start is no fault of the file
      named.fileServer = std::make_unique<Player::StorageServer>(loopback);
    try {
      CheckFile(argument.text);
      const int64_t id = named.fileServer->AddTrack(argument.text);
      const Player::StorageId storage(loopback.address, named.fileServer->Port());
      named.servers[storage].push_back({index, argument.text, Player::TrackId(storage, id)});
    } catch (const std::exception& error) {
      const std::string reason = error.what();
      const std::string prefix = "cannot read " + argument.text + ": ";
      named.failed[index] = {argument.text,
                             reason.substr(reason.starts_with(prefix) ? prefix.size() : 0)};
    }
  }
  return named;
}

}  // namespace Moravel::Play
