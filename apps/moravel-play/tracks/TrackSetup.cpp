#include "tracks/TrackSetup.h"

#include <algorithm>
#include <future>
#include <map>

#include "command/UsageError.h"
#include "qel/WorkflowStepImplementation.h"
#include "tracks/TrackTimes.h"

namespace Moravel::Play {

namespace {

struct NamedTrack {
  int index;
  std::string name;
  Player::TrackId id;
};

using NamedServers = std::map<Player::StorageId, std::vector<NamedTrack>>;

// What came of one server. The failures carry the index of their track, for their order.
struct OpenedServer {
  PlayingServer server;
  std::vector<std::pair<int, FailedTrack>> failed;
};

// One source, which belongs to the first track that could be opened and is then set to the others.
struct Source {
  qel::MediaSourcePtr media;
  qel::SourceControlPtr control;

  void Select(const Player::TrackId& id) {
    if (!media) {
      Source made;
      Player::QELPreloader::InitSource(made.media, made.control, id);
      *this = made;
      return;
    }
    const auto config = qel::CreateParametersCollectionInstance(qel::GetUpdateConfigPrototype(
        qel::ElementFactoryType_Source, "qel.StorageSource", "storage"));
    config->SetParamInt64("track_id", id.Id());
    control->UpdateConfig(config);
  }
};

// From the first sample that is asked for to the end, where neither count nor duration is given.
int64_t CountSamples(const Options& options, const Track& track, int64_t first) {
  if (options.count)
    return *options.count;
  if (options.duration)
    return SamplesIn(*options.duration, track);
  if (first >= track.sampleCount) {
    throw UsageError(track.name + ": nothing to play at --start " + options.start.ToString() +
                     ": the last sample is at " + ToTimeCode(track, track.sampleCount - 1));
  }
  return track.sampleCount - first;
}

Track Describe(const NamedTrack& named, const qel::InfoContainerConstPtr& output,
               const Options& options) {
  const qel::VideoInfoList infos = output ? output->GetVideoInfoList() : qel::VideoInfoList();
  if (infos.empty())
    throw std::runtime_error("the track has no video");
  const qel::IVideoInfo& info = *infos.front();
  const qel::EditRate& rate = info.GetEditRate();
  if (rate._numerator == 0 || rate._denominator == 0 || info.GetSampleCount() <= 0)
    throw std::runtime_error("the track has no pictures, or no picture rate");

  Track track;
  track.index = named.index;
  track.name = named.name;
  track.id = named.id;
  track.ownSize = {info.GetWidth(), info.GetHeight()};
  track.interlaced = infos.size() == 2;
  track.sampleCount = info.GetSampleCount();
  track.sampleRate = Player::SampleRate(rate._numerator, rate._denominator);
  track.picturesPerSample = track.interlaced && options.fields ? 2 : 1;
  track.sizes = options.sizes.empty() ? std::vector<Size>{track.ownSize} : options.sizes;
  const int64_t first = SampleOf(options.start, track);
  track.sequence = PlaySequence(first, CountSamples(options, track, first), options.order);
  track.TimeOf(first + track.sequence.Count());  // refuses times that nobody can count
  return track;
}

std::unique_ptr<PlayingTrack> OpenTrack(Source& source, const NamedTrack& named,
                                        const Options& options) {
  source.Select(named.id);
  auto track = std::make_unique<PlayingTrack>(
      Describe(named, source.media->GetDefinedOutput(""), options), options.window);
  for (int worker = 0; worker < options.jobs; ++worker) {
    track->decodersOfWorker.emplace_back(source.media, options.format, track->facts.sizes);
  }
  return track;
}

OpenedServer OpenServer(const Player::StorageId& id, const std::vector<NamedTrack>& tracks,
                        const Options& options) {
  OpenedServer opened;
  Source source;
  for (const NamedTrack& named : tracks) {
    try {
      opened.server.tracks.push_back(OpenTrack(source, named, options));
    } catch (const UsageError&) {
      throw;
    } catch (const std::exception& error) {
      opened.failed.push_back({named.index, {named.name, ReasonOf(error, named.id)}});
    }
  }
  if (!opened.server.tracks.empty()) {
    opened.server.preloader = std::make_unique<Player::QELPreloader>();
    opened.server.preloader->SetStorageSource(id, source.media, source.control);
  }
  return opened;
}

void CheckFile(const std::string& name) {
  const auto status = std::filesystem::status(name);
  if (!std::filesystem::exists(status))
    throw std::runtime_error("no such file (a track of a server is ADDRESS:PORT:Tn)");
  if (!std::filesystem::is_regular_file(status))
    throw std::runtime_error("is not a regular file: a motion-JPEG file (AVI or MOV) is needed");
}

// Files become tracks of the embedded server. Those that cannot are noted as failed.
NamedServers NameServers(const Options& options, Setup& setup, std::map<int, FailedTrack>& failed) {
  NamedServers servers;
  int index = 0;
  for (const TrackArgument& argument : options.tracks) {
    ++index;
    if (argument.remoteId) {
      servers[argument.remoteId->StorageId()].push_back({index, argument.text, *argument.remoteId});
      continue;
    }
    try {
      CheckFile(argument.text);
      const Player::StorageServer::Options loopback;
      if (!setup.fileServer)
        setup.fileServer = std::make_unique<Player::StorageServer>(loopback);
      const int64_t id = setup.fileServer->AddTrack(argument.text);
      const Player::StorageId storage(loopback.address, setup.fileServer->Port());
      servers[storage].push_back({index, argument.text, Player::TrackId(storage, id)});
    } catch (const std::exception& error) {
      failed[index] = {argument.text, error.what()};
    }
  }
  return servers;
}

// In the order of the command line.
std::vector<PlayingTrack*> ListTracks(const std::vector<PlayingServer>& servers) {
  std::vector<PlayingTrack*> tracks;
  for (const PlayingServer& server : servers) {
    for (const auto& track : server.tracks)
      tracks.push_back(track.get());
  }
  std::sort(tracks.begin(), tracks.end(), [](const PlayingTrack* a, const PlayingTrack* b) {
    return a->facts.index < b->facts.index;
  });
  return tracks;
}

}  // namespace

Setup OpenTracks(const Options& options) {
  Setup setup;
  std::map<int, FailedTrack> failed;  // in the order of the command line
  const NamedServers named = NameServers(options, setup, failed);

  std::vector<std::future<OpenedServer>> opening;
  for (const auto& [id, tracks] : named) {
    opening.push_back(std::async(std::launch::async, OpenServer, std::cref(id), std::cref(tracks),
                                 std::cref(options)));
  }
  for (auto& future : opening) {
    OpenedServer opened = future.get();
    failed.insert(opened.failed.begin(), opened.failed.end());
    if (!opened.server.tracks.empty())
      setup.servers.push_back(std::move(opened.server));
  }
  setup.tracks = ListTracks(setup.servers);
  for (auto& [index, track] : failed)
    setup.failed.push_back(std::move(track));
  return setup;
}

}  // namespace Moravel::Play
