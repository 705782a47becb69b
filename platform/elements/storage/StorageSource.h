#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "elements/MemoryPool.h"
#include "elements/storage/HttpClient.h"
#include "elements/storage/StorageTrack.h"
#include "qel/Elements.h"

namespace qel {

// Tracks that one source keeps open.
constexpr size_t kMaxOpenTracks = 256;
// What the indexes of its tracks take in memory together: some ten thousand hours of material.
constexpr int64_t kMaxIndexMemory = int64_t{256} << 20;

// What a source has read of its tracks and not delivered, or keeps for a reader that goes back and
// forth: all tracks together, and the sample that is read.
constexpr int64_t kMaxReadAheadBytes = int64_t{32} << 20;
// Requests of a source that are under way.
constexpr int kMaxTransfers = 64;

// Enters the storage source into the framework's registry as ("qel.StorageSource", "storage").
// `beginningBytes`: where a configuration does not give them.
void RegisterStorageSource(int64_t beginningBytes);

// Reads motion-JPEG tracks of one storage server over HTTP byte ranges. Used by one thread at a
// time; it has no thread of its own. Failures are QELRuntimeError that names the track and what is
// wrong, never a missing sample, and the next call works as soon as the server does.
//
// Initial configuration: "tcp_address" and "tcp_port", or "unix_domain_socket" when not empty;
// "track_id"; "beginning_bytes" (0): of a track that nobody in the process has open, its opening
// asks for so many first bytes of the file too, out of which the first samples are delivered if
// they are read next: the first one comes a round trip sooner. And how long the server may take
// before a call fails: "connect_timeout_ms" (2000; with the resolution of its name),
// "stall_timeout_ms" (5000; without sending anything), "answer_timeout_ms" (10000; until the header
// of an answer is complete), "open_timeout_ms" (30000; for the whole opening of a track),
// "least_rate" (16384 bytes a second of an answer's body, over each "rate_window_ms" (10000)). The
// time that the process was stopped for does not count.
//
// Update configuration: "remove_track" forgets a track; "track_id" selects one, and opens it when
// it is not open. When that fails no track is selected.
class StorageSource : public ISource {
 public:
  StorageSource();

  // Keeps the server, then opens the track. When only the latter fails the source is configured.
  void SetInitConfig(ParametersCollectionInstanceConstPtr config) override;
  void UpdateConfig(ParametersCollectionInstanceConstPtr config) override;

  // The streams of the selected track: "video", or "video.top" and "video.bottom".
  InfoContainerConstPtr GetDefinedOutput(std::string name) override;

  // Seeks in the selected track, whose first sample is at time 0. Returns where the sample found
  // starts; outside the track the time asked for, and the next GetSample returns an empty handle.
  MediaTime GotoTimeOffset(const MediaTime& time, std::string stream) override;

  // The sample sought and then, call by call, those that follow it, each in a container with its
  // "StorageTimePoint". Fields are two samples, channel 0 the top and 1 the bottom one, in stored
  // order. An empty handle outside the track and for a sample that was dropped.
  SampleContainerConstPtr GetSample() override;

 private:
  struct OpenTrack {
    std::unique_ptr<StorageTrack> track;
    InfoList infos;  // progressive: of the frames; interlaced: of the top and the bottom fields
  };

  void SelectTrack(int64_t trackId);
  void ForgetTrack(int64_t trackId);
  // Throws QELRuntimeError when the indexes of all tracks and this one take too much memory.
  void CheckIndexMemory(const StorageTrack& added) const;
  OpenTrack& Selected();
  // Reads the sample at position_, of the file as it is now.
  std::optional<SampleBytes> ReadSample(OpenTrack& open);
  void ReopenSelected(OpenTrack& open);
  ReadAheadShare MakeRoom(const StorageTrack& reading);
  SampleContainerConstPtr MakeContainer(const OpenTrack& open, const SampleBytes& bytes) const;

  const std::shared_ptr<MemoryPool> pool_;
  const ChannelInfoConstPtr top_;
  const ChannelInfoConstPtr bottom_;
  std::unique_ptr<HttpClient> client_;  // outlives the tracks
  int64_t beginningBytes_ = 0;
  std::map<int64_t, OpenTrack> tracks_;
  std::optional<int64_t> selected_;

  // What GetSample delivers next: a sample of the selected track, and the time by which it is found
  // again when the file was replaced.
  int64_t position_ = 0;
  MediaTime positionTime_;
  bool isInside_ = true;
};

}  // namespace qel
