#include "playing/OrderSchedule.h"

#include <algorithm>

namespace Moravel::Play {

namespace {

constexpr auto kFarAway = std::chrono::hours(24);
// In real time, from a track's first picture to when it is due: what comes unevenly evens out.
constexpr auto kPreroll = std::chrono::milliseconds(500);

}  // namespace

void OrderSchedule::Changed() {
  ++changes_;
  changed_.notify_all();
}

void OrderSchedule::AddOpener(size_t lane) {
  const std::lock_guard<std::mutex> lock(access_);
  ++lanes_[lane].openers;
}

void OrderSchedule::OpenerDone(size_t lane) {
  const std::lock_guard<std::mutex> lock(access_);
  --lanes_[lane].openers;
  Changed();
}

void OrderSchedule::Add(size_t lane, std::optional<int> connection, int window,
                        PlayingTrack& track) {
  const std::lock_guard<std::mutex> lock(access_);
  track.ordering.window = window;
  auto& tracks = lanes_[lane].tracks;
  tracks.insert(tracks.begin(), {&track, connection});  // its first picture comes first
  Changed();
}

std::optional<Job> OrderSchedule::Next(size_t lane, int connection, Patience patience,
                                       std::stop_token stop) {
  std::unique_lock<std::mutex> lock(access_);
  while (!stop.stop_requested()) {
    Clock::time_point wakeUp = Clock::now() + kFarAway;
    if (const auto job = TryNext(lanes_[lane], connection, wakeUp))
      return job;
    if (patience == Patience::DoNotWait || !HasOrders(lanes_[lane], connection))
      break;
    changed_.wait_until(lock, stop, wakeUp, [this, seen = changes_] { return changes_ != seen; });
  }
  return std::nullopt;
}

std::optional<Job> OrderSchedule::TryNext(Lane& lane, int connection, Clock::time_point& wakeUp) {
  auto& tracks = lane.tracks;
  std::erase_if(tracks, [](const LaneTrack& each) {
    const PlayingTrack& track = *each.track;
    return track.ordering.closed || track.ordering.next >= track.facts.sequence.Count();
  });
  for (auto each = tracks.begin(); each != tracks.end(); ++each) {
    if (each->connection.value_or(connection) != connection)
      continue;
    if (const auto job = Take(*each->track, wakeUp)) {
      std::rotate(each, each + 1, tracks.end());
      return job;
    }
  }
  return std::nullopt;
}

std::optional<Job> OrderSchedule::Take(PlayingTrack& track, Clock::time_point& wakeUp) {
  PlayingTrack::Ordering& ordering = track.ordering;
  Job job = {&track, ordering.next,
             track.facts.BytesOf(track.facts.sequence.SampleAt(ordering.next)), false};
  if (ordering.clockStart) {
    const Clock::time_point now = Clock::now();
    const Clock::time_point earliest = DueTime(track, ordering.next - ordering.window);
    if (earliest > now) {
      wakeUp = std::min(wakeUp, earliest);
      return std::nullopt;
    }
    job.isLate = DueTime(track, ordering.next + 1) <= now;
  }
  const bool hasRoom = waitingBytes_ == 0 || waitingBytes_ + job.bytes <= limits_.waitingBytes;
  if (job.isLate)
    job.bytes = 0;
  else if (ordering.waiting >= ordering.window || !hasRoom)
    return std::nullopt;
  ++ordering.next;
  ++ordering.waiting;
  waitingBytes_ += job.bytes;
  return job;
}

bool OrderSchedule::HasOrders(const Lane& lane, int connection) const {
  return lane.openers != 0 ||
         std::any_of(lane.tracks.begin(), lane.tracks.end(), [&](const LaneTrack& each) {
           return each.connection.value_or(connection) == connection;
         });
}

void OrderSchedule::Release(const Job& job) {
  const std::lock_guard<std::mutex> lock(access_);
  --job.track->ordering.waiting;
  waitingBytes_ -= job.bytes;
  Changed();
}

std::optional<int64_t> OrderSchedule::Close(PlayingTrack& track) {
  const std::lock_guard<std::mutex> lock(access_);
  if (std::exchange(track.ordering.closed, true))
    return std::nullopt;
  Changed();
  return track.ordering.next;
}

bool OrderSchedule::PictureIsInTime(PlayingTrack& track, int64_t position) {
  const Clock::time_point now = Clock::now();
  const std::lock_guard<std::mutex> lock(access_);
  if (!limits_.realtime)
    return true;
  if (!track.ordering.clockStart) {
    track.ordering.clockStart = now + kPreroll - track.facts.PlayTime(position);
    Changed();
  }
  return now <= DueTime(track, position);
}

Clock::time_point OrderSchedule::DueTime(const PlayingTrack& track, int64_t position) {
  return *track.ordering.clockStart + track.facts.PlayTime(position);
}

}  // namespace Moravel::Play
