#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "Player/QELPreloader.h"
#include "Player/QELSample.h"
#include "elements/storage/TrackIndex.h"
#include "qel/Infos.h"
#include "storage-server/StorageServer.h"

namespace Moravel::Bench {

// A cache that keeps what the preloader brings.
class KeepingQueue : public Player::CacheUpdateQueue {
 public:
  void Push(const Player::Output& output) override { samples_.emplace_back(output.sample_); }

  std::vector<std::unique_ptr<Player::ISample>> samples_;
};

// One track of one server, with a preloader on it.
class Track {
 public:
  explicit Track(const Player::TrackId& id);

  // The sample is handed to the queue; throws when there is none.
  void Preload(int64_t number, Player::CacheUpdateQueue& queue);

  int64_t SampleCount() const { return info_->GetSampleCount(); }
  const qel::IVideoInfo& Info() const { return *info_; }
  const qel::MediaSourcePtr& Source() const { return source_; }

 private:
  const Player::TrackId id_;
  qel::MediaSourcePtr source_;
  qel::SourceControlPtr control_;
  qel::VideoInfoConstPtr info_;
  Player::QELPreloader preloader_;
};

// The first samples of a clip, preloaded from a server inside this process.
struct LoadedClip {
  explicit LoadedClip(const std::filesystem::path& file);

  Player::StorageServer server_;
  std::unique_ptr<Track> track_;
  KeepingQueue cache_;
};

// The clip that the program was given.
LoadedClip& TheClip();
void SetTheClip(const std::filesystem::path& file);
const std::filesystem::path& TheClipFile();
// Where its samples lie.
const qel::TrackIndex& Index();

}  // namespace Moravel::Bench
