#include "live/OrderBook.h"

#include <algorithm>
#include <utility>

namespace Moravel::Play {

namespace {

using Kind = LiveOrder::Kind;

constexpr int32_t kNearbyPriority = 0;

}  // namespace

int32_t PriorityOf(Kind kind, int32_t serial) {
  constexpr int32_t kThumbnails = 500'000'000;  // there is room for that many orders of each kind
  constexpr int32_t kPlaybacks = 1'000'000'000;
  switch (kind) {
    case Kind::Show:
      return kPlaybacks + serial;
    case Kind::Play:
      return kPlaybacks - serial;
    case Kind::Thumbnail:
      return kThumbnails - serial;
  }
  return kNearbyPriority;
}

OrderBook::Wanted OrderBook::Entry::HowWanted() const {
  if (waiting.empty())
    return Wanted::ByNobody;
  const bool isThumbnail = std::all_of(waiting.begin(), waiting.end(), [](const auto& picture) {
    return picture->Order().kind == Kind::Thumbnail;
  });
  return isThumbnail ? Wanted::AsThumbnail : Wanted::AsPicture;
}

// A thumbnail is nothing's neighbour, and what is shown is wanted from whoever is free.
bool OrderBook::Entry::IsSequence() const {
  const bool isShown = std::any_of(waiting.begin(), waiting.end(), [](const auto& picture) {
    return picture->Order().kind != Kind::Play;
  });
  return !isShown;
}

OrderBook::Entry& OrderBook::Enter(const Track& track, int64_t sample, int32_t priority) {
  const Player::PreloadOrder order(track.TimeOf(sample), track.OrderRate(), nullptr, track.id);
  Entry& entry = entries_.try_emplace({track.index, sample}, order).first->second;
  entry.order.SetPriority(std::max(entry.order.Priority(), priority));
  return entry;
}

PendingPictureList OrderBook::Add(PendingPicturePtr picture, const Track& track) {
  const LiveOrder& order = picture->Order();
  PendingPictureList stale;
  if (IsStale(order)) {
    stale.push_back(std::move(picture));
    return stale;
  }
  stale = DropStale(order);
  Entry& entry = Enter(track, order.key.sample, picture->priority);
  entry.isNearby = false;
  entry.waiting.push_back(std::move(picture));
  return stale;
}

void OrderBook::AddAhead(const LiveOrder& order, const Track& track, int64_t sample,
                         int32_t priority) {
  Entry& entry = Enter(track, sample, priority);
  entry.ahead = order;
  entry.isNearby = false;
}

void OrderBook::DropPassed(const LiveOrder& order) {
  const auto isPassed = [&](const SampleKey& key, const Entry& entry) {
    return key.track == order.key.track && (order.key.sample - key.sample) * order.step > 0 &&
           entry.ahead && entry.ahead->lane == order.lane;
  };
  for (auto& [key, entry] : entries_) {
    if (isPassed(key, entry))
      entry.ahead.reset();
  }
  EraseForgotten();
}

void OrderBook::AddNearby(const Track& track, int64_t sample) {
  if (!Holds({track.index, sample}))
    Enter(track, sample, kNearbyPriority).isNearby = true;
}

bool OrderBook::IsStale(const LiveOrder& order) const {
  return std::any_of(entries_.begin(), entries_.end(), [&](const auto& known) {
    const PendingPictureList& waiting = known.second.waiting;
    return std::any_of(waiting.begin(), waiting.end(),
                       [&](const auto& picture) { return picture->Order().Supersedes(order); });
  });
}

// What is being read is finished unless it stalls: dragging shows it until the newer one is there.
PendingPictureList OrderBook::DropStale(const LiveOrder& newer) {
  PendingPictureList stale;
  for (auto& [key, entry] : entries_)
    entry.DropStale(newer, entry.isReading ? entry.outdated : stale);
  EraseForgotten();
  return stale;
}

void OrderBook::Entry::DropStale(const LiveOrder& newer, PendingPictureList& stale) {
  const auto first = std::stable_partition(
      waiting.begin(), waiting.end(),
      [&](const auto& picture) { return !newer.Supersedes(picture->Order()); });
  std::move(first, waiting.end(), std::back_inserter(stale));
  waiting.erase(first, waiting.end());
  if (ahead && newer.Supersedes(*ahead))
    ahead.reset();
  isNearby = isNearby && newer.kind == Kind::Thumbnail;
}

void OrderBook::EraseForgotten() {
  std::erase_if(entries_, [](const auto& known) { return known.second.IsForgotten(); });
}

void OrderBook::DropAhead() {
  std::erase_if(entries_, [](const auto& known) {
    return !known.second.isReading && known.second.waiting.empty();
  });
}

void OrderBook::TakeAll(PendingPictureList& pictures) {
  for (auto& [key, entry] : entries_) {
    std::move(entry.outdated.begin(), entry.outdated.end(), std::back_inserter(pictures));
    std::move(entry.waiting.begin(), entry.waiting.end(), std::back_inserter(pictures));
  }
  entries_.clear();
}

const LiveOrder* OrderBook::Entry::Playback() const {
  if (!waiting.empty() && waiting.front()->Order().kind == Kind::Play)
    return &waiting.front()->Order();
  return ahead ? &*ahead : nullptr;
}

// Its orders come side by side, in any order.
OrderBook::Entries::iterator OrderBook::FirstOfItsPlayback(Entries::iterator chosen) {
  const LiveOrder* const playback = chosen->second.Playback();
  if (playback == nullptr || !chosen->second.IsSequence())
    return chosen;
  for (auto known = entries_.begin(); known != entries_.end(); ++known) {
    const LiveOrder* const other = known->second.Playback();
    if (other != nullptr && other->lane == playback->lane && !known->second.isReading &&
        known->first.track == chosen->first.track &&
        (chosen->first.sample - known->first.sample) * playback->step > 0)
      chosen = known;
  }
  return chosen;
}

std::optional<OrderBook::Read> OrderBook::Next(Reader reader) {
  const auto rank = [&](const Entry& entry) {
    return std::pair(reader == Reader::Sequence && !entry.IsSequence(), entry.order);
  };
  auto next = entries_.end();
  for (auto known = entries_.begin(); known != entries_.end(); ++known) {
    const Entry& entry = known->second;
    if (entry.isReading || (reader == Reader::Single && entry.IsSequence()))
      continue;
    if (next == entries_.end() || rank(entry) < rank(next->second))
      next = known;
  }
  if (next == entries_.end())
    return std::nullopt;
  next = FirstOfItsPlayback(next);
  Entry& entry = next->second;
  entry.isReading = true;
  entry.readSince = Clock::now();
  entry.stop = std::stop_source();
  return Read{next->first, entry.order, entry.stop};
}

PendingPictureList OrderBook::Finish(const SampleKey& key) {
  const auto found = entries_.find(key);
  if (found == entries_.end())
    return {};
  PendingPictureList waiting = std::move(found->second.outdated);
  std::move(found->second.waiting.begin(), found->second.waiting.end(),
            std::back_inserter(waiting));
  entries_.erase(found);
  return waiting;
}

PendingPictureList OrderBook::PutBack(const SampleKey& key) {
  const auto found = entries_.find(key);
  if (found == entries_.end())
    return {};
  Entry& entry = found->second;
  PendingPictureList stale = std::exchange(entry.outdated, {});
  entry.isReading = false;
  if (entry.IsForgotten())
    entries_.erase(found);
  return stale;
}

PendingPictureList OrderBook::StopStalled(Clock::time_point begunBefore) {
  Wanted next = Wanted::ByNobody;
  for (const auto& [key, entry] : entries_) {
    if (!entry.isReading)
      next = std::max(next, entry.HowWanted());
  }
  PendingPictureList stale;
  for (auto& [key, entry] : entries_) {
    if (!entry.isReading || entry.readSince >= begunBefore)
      continue;
    const Wanted wanted = entry.HowWanted();
    const bool isOutdated = wanted == Wanted::ByNobody && !entry.outdated.empty();
    if (!entry.ahead && (isOutdated || wanted < next))
      entry.stop.request_stop();
    std::move(entry.outdated.begin(), entry.outdated.end(), std::back_inserter(stale));
    entry.outdated.clear();
  }
  return stale;
}

}  // namespace Moravel::Play
