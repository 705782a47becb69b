#include "live/LiveTracks.h"

#include <future>
#include <utility>

namespace Moravel::Play {

namespace {

struct OpenedLiveServer {
  LiveServer server;
  std::vector<std::pair<int, FailedTrack>> failed;
};

OpenedLiveServer OpenLiveServer(const std::vector<NamedTrack>& tracks,
                                const std::stop_token& stop) {
  OpenedLiveServer opened;
  opened.server.name = tracks.front().id.StorageId().ToString();
  opened.server.reader = std::make_unique<LiveConnection>();
  for (const NamedTrack& named : tracks) {
    try {
      opened.server.reader->Open(named.id, stop);
      opened.server.tracks.push_back(DescribeTrack(named, opened.server.reader->Describe()));
    } catch (const std::exception& error) {
      opened.failed.push_back({named.index, {named.name, ReasonOf(error, named.id)}});
    }
  }
  return opened;
}

}  // namespace

LiveTracks OpenLiveTracks(const std::vector<TrackArgument>& arguments, std::stop_token stop) {
  NamedTracks named = NameTracks(arguments);
  LiveTracks live;
  live.fileServer = std::move(named.fileServer);
  std::vector<std::future<OpenedLiveServer>> opening;
  for (const auto& [id, tracks] : named.servers) {
    opening.push_back(std::async(std::launch::async, OpenLiveServer, std::cref(tracks), stop));
  }
  for (auto& future : opening) {
    OpenedLiveServer opened = future.get();
    named.failed.insert(opened.failed.begin(), opened.failed.end());
    if (!opened.server.tracks.empty())
      live.servers.push_back(std::move(opened.server));
  }
  for (auto& [index, track] : named.failed)
    live.failed.push_back(std::move(track));
  return live;
}

}  // namespace Moravel::Play
