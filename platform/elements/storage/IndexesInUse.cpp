#include "elements/storage/IndexesInUse.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <tuple>

namespace qel {

namespace {

using Key = std::tuple<std::string, int64_t, std::string>;

// Of the process, as the sources of one server know nothing of each other.
struct IndexesInUse {
  std::mutex access;  // guards the map
  std::map<Key, std::weak_ptr<const TrackIndex>> known;
};

IndexesInUse& Indexes() {
  static IndexesInUse indexes;
  return indexes;
}

}  // namespace

std::shared_ptr<const TrackIndex> ShareIndex(const std::string& track, const FileVersion& version,
                                             const std::function<TrackIndex()>& read) {
  if (!version.IsCertain())
    return std::make_shared<const TrackIndex>(read());
  IndexesInUse& indexes = Indexes();
  const Key key(track, version.size, version.etag);
  const auto find = [&]() -> std::shared_ptr<const TrackIndex> {
    const auto found = indexes.known.find(key);
    return found == indexes.known.end() ? nullptr : found->second.lock();
  };
  {
    const std::lock_guard<std::mutex> lock(indexes.access);
    if (auto index = find())
      return index;
  }
  auto index = std::make_shared<const TrackIndex>(read());
  const std::lock_guard<std::mutex> lock(indexes.access);
  if (auto other = find())  // was faster
    return other;
  std::erase_if(indexes.known, [](const auto& known) { return known.second.expired(); });
  indexes.known.emplace(key, index);
  return index;
}

bool IsIndexInUse(const std::string& track) {
  IndexesInUse& indexes = Indexes();
  const std::lock_guard<std::mutex> lock(indexes.access);
  const auto first = indexes.known.lower_bound({track, 0, {}});
  const auto isHeld = [&](const auto& known) {
    return std::get<0>(known.first) == track && !known.second.expired();
  };
  return std::find_if(first, indexes.known.end(), isHeld) != indexes.known.end();
}

}  // namespace qel
