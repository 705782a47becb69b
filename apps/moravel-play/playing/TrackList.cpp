#include "playing/TrackList.h"

#include <algorithm>

#include "command/Problem.h"

namespace Moravel::Play {

PlayingTrack& TrackList::Add(std::unique_ptr<PlayingTrack> track) {
  const std::lock_guard<std::mutex> lock(entriesAccess_);
  Entry& entry = entries_[static_cast<size_t>(track->facts.index) - 1];
  entry.open = std::move(track);
  return *entry.open;
}

void TrackList::AddFailed(int index, FailedTrack track, bool isWrongUsage) {
  PrintProblem(track.name + ": " + track.reason);
  const std::lock_guard<std::mutex> lock(entriesAccess_);
  Entry& entry = entries_[static_cast<size_t>(index) - 1];
  entry.failed = std::move(track);
  entry.isWrongUsage = isWrongUsage;
}

std::vector<PlayingTrack*> TrackList::Open() const {
  const std::lock_guard<std::mutex> lock(entriesAccess_);
  std::vector<PlayingTrack*> tracks;
  for (const Entry& entry : entries_) {
    if (entry.open)
      tracks.push_back(entry.open.get());
  }
  return tracks;
}

std::vector<FailedTrack> TrackList::Failed() const {
  const std::lock_guard<std::mutex> lock(entriesAccess_);
  std::vector<FailedTrack> failed;
  for (const Entry& entry : entries_) {
    if (entry.failed)
      failed.push_back(*entry.failed);
  }
  return failed;
}

bool TrackList::HasUnreadable() const {
  const std::lock_guard<std::mutex> lock(entriesAccess_);
  return std::any_of(entries_.begin(), entries_.end(),
                     [](const Entry& entry) { return entry.failed && !entry.isWrongUsage; });
}

bool TrackList::HasWrongUsage() const {
  const std::lock_guard<std::mutex> lock(entriesAccess_);
  return std::any_of(entries_.begin(), entries_.end(),
                     [](const Entry& entry) { return entry.isWrongUsage; });
}

}  // namespace Moravel::Play
