#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "playing/PlayingTrack.h"
#include "tracks/NamedTracks.h"

namespace Moravel::Play {

// The tracks of the command line, in its order: those that are open, and those that could not be.
// Any thread may call anything; tracks stay as long as the list.
class TrackList {
 public:
  explicit TrackList(size_t count) : entries_(count) {}

  PlayingTrack& Add(std::unique_ptr<PlayingTrack> track);
  // `index` as Track::index. A track that the options ask nothing of is wrong usage.
  void AddFailed(int index, FailedTrack track, bool isWrongUsage);

  size_t Count() const { return entries_.size(); }
  std::vector<PlayingTrack*> Open() const;
  std::vector<FailedTrack> Failed() const;
  bool HasUnreadable() const;
  bool HasWrongUsage() const;

 private:
  struct Entry {
    std::unique_ptr<PlayingTrack> open;
    std::optional<FailedTrack> failed;
    bool isWrongUsage = false;
  };

  mutable std::mutex entriesAccess_;  // guards entries_
  std::vector<Entry> entries_;
};

}  // namespace Moravel::Play
