#include "elements/mjpeg/SharedPictures.h"

#include <algorithm>
#include <utility>

namespace qel::mjpeg {

namespace {

// By owner: an address may come back with another object behind it, an owner does not while it is
// referred to.
template <typename T>
bool IsSame(const std::weak_ptr<const T>& known, const std::shared_ptr<const T>& object) {
  return !known.owner_before(object) && !object.owner_before(known) && known.lock() == object;
}

}  // namespace

SharedPictures& SharedPictures::Instance() {
  static SharedPictures pictures;
  return pictures;
}

YuvPictureConstPtr SharedPictures::Get(const InfoConstPtr& track, const BufferConstPtr& encoded,
                                       const WantedOutput& output, const Decode& decode) {
  std::unique_lock<std::mutex> lock(access_);
  const WantedOutputs outputs = NoteWanted(track, output);
  if (YuvPictureConstPtr picture = TakeOrWait(lock, encoded, output))
    return picture;
  if (outputs.size() == 1) {
    lock.unlock();
    return decode(outputs);
  }
  WantedOutputs others = outputs;
  std::erase(others, output);
  const auto entry = entries_.insert(entries_.end(), {encoded, std::move(others), nullptr});
  return DecodeFor(lock, entry, outputs, decode);
}

// All outputs wanted of the track at present, among them this one.
WantedOutputs SharedPictures::NoteWanted(const InfoConstPtr& info, const WantedOutput& output) {
  auto track = std::find_if(tracks_.begin(), tracks_.end(),
                            [&info](const Track& known) { return IsSame(known.info, info); });
  if (track == tracks_.end()) {
    std::erase_if(tracks_, [](const Track& known) { return known.info.expired(); });
    track = tracks_.insert(tracks_.end(), Track{info, 0, {}});
  }
  const int64_t push = ++track->pushes;
  std::erase_if(track->recent, [&](const Track::Recent& recent) {
    return recent.output == output || recent.push < push - kWantedPushes;
  });
  track->recent.push_back({output, push});

  WantedOutputs outputs;
  outputs.reserve(track->recent.size());
  for (const Track::Recent& recent : track->recent)
    outputs.push_back(recent.output);
  return outputs;
}

// The entry of the picture that expects the output.
SharedPictures::Entries::iterator SharedPictures::Find(const BufferConstPtr& encoded,
                                                       const WantedOutput& output) {
  return std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return IsSame(entry.encoded, encoded) &&
           std::count(entry.expected.begin(), entry.expected.end(), output) != 0;
  });
}

// The picture that was decoded for this output too; empty when the caller has to decode it.
YuvPictureConstPtr SharedPictures::TakeOrWait(std::unique_lock<std::mutex>& lock,
                                              const BufferConstPtr& encoded,
                                              const WantedOutput& output) {
  for (auto entry = Find(encoded, output); entry != entries_.end(); entry = Find(encoded, output)) {
    if (!entry->picture) {
      decoded_.wait(lock);
      continue;
    }
    YuvPictureConstPtr picture = entry->picture;
    std::erase(entry->expected, output);
    if (entry->expected.empty())
      entries_.erase(entry);
    return picture;
  }
  return nullptr;
}

YuvPictureConstPtr SharedPictures::DecodeFor(std::unique_lock<std::mutex>& lock,
                                             Entries::iterator entry, const WantedOutputs& outputs,
                                             const Decode& decode) {
  lock.unlock();
  YuvPictureConstPtr picture;
  try {
    picture = decode(outputs);
  } catch (...) {
    lock.lock();
    entries_.erase(entry);
    decoded_.notify_all();
    throw;
  }
  lock.lock();
  entry->picture = picture;
  Trim();
  decoded_.notify_all();
  return picture;
}

// Forgets pictures whose encoded buffer is gone, and the oldest ones beyond the bound.
void SharedPictures::Trim() {
  const auto isKept = [](const Entry& entry) { return entry.picture != nullptr; };
  std::erase_if(entries_,
                [&](const Entry& entry) { return isKept(entry) && entry.encoded.expired(); });
  size_t bytes = 0;
  for (auto entry = entries_.end(); entry != entries_.begin();) {
    --entry;
    bytes += isKept(*entry) ? entry->picture->bytes : 0;
    if (isKept(*entry) && bytes > kMaxSharedPictureMemory)
      entry = entries_.erase(entry);
  }
}

}  // namespace qel::mjpeg
