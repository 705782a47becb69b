#include "tracks/TrackSetup.h"

#include <algorithm>
#include <future>

#include "command/UsageError.h"
#include "qel/WorkflowStepImplementation.h"
#include "tracks/TrackSource.h"
#include "tracks/TrackTimes.h"

namespace Moravel::Play {

namespace {

// What came of one server. The failures carry the index of their track, for their order.
struct OpenedServer {
  PlayingServer server;
  std::vector<std::pair<int, FailedTrack>> failed;
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
  Track track = DescribeTrack(named, output);
  track.picturesPerSample = track.interlaced && options.fields ? 2 : 1;
  track.sizes = options.sizes.empty() ? std::vector<Size>{track.ownSize} : options.sizes;
  const int64_t first = SampleOf(options.start, track);
  track.sequence = PlaySequence(first, CountSamples(options, track, first), options.order);
  track.TimeOf(first + track.sequence.Count());  // refuses times that nobody can count
  return track;
}

std::unique_ptr<PlayingTrack> OpenTrack(TrackSource& source, const NamedTrack& named,
                                        const Options& options) {
  source.Select(named.id);
  auto track = std::make_unique<PlayingTrack>(
      Describe(named, source.Media()->GetDefinedOutput(""), options), options.window);
  for (int worker = 0; worker < options.jobs; ++worker) {
    track->decodersOfWorker.emplace_back(source.Media(), options.format, track->facts.sizes);
  }
  return track;
}

OpenedServer OpenServer(const Player::StorageId& id, const std::vector<NamedTrack>& tracks,
                        const Options& options) {
  OpenedServer opened;
  TrackSource source;
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
    opened.server.preloader->SetStorageSource(id, source.Media(), source.Control());
  }
  return opened;
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
  NamedTracks named = NameTracks(options.tracks);
  setup.fileServer = std::move(named.fileServer);

  std::vector<std::future<OpenedServer>> opening;
  for (const auto& [id, tracks] : named.servers) {
    opening.push_back(std::async(std::launch::async, OpenServer, std::cref(id), std::cref(tracks),
                                 std::cref(options)));
  }
  for (auto& future : opening) {
    OpenedServer opened = future.get();
    named.failed.insert(opened.failed.begin(), opened.failed.end());
    if (!opened.server.tracks.empty())
      setup.servers.push_back(std::move(opened.server));
  }
  setup.tracks = ListTracks(setup.servers);
  for (auto& [index, track] : named.failed)
    setup.failed.push_back(std::move(track));
  return setup;
}

}  // namespace Moravel::Play
