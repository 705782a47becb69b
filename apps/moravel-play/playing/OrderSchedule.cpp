#include "playing/OrderSchedule.h"

#include <algorithm>

namespace Moravel::Play {

namespace {

constexpr auto kFarAway = std::chrono::hours(24);
// In real time, from a track's first picture to when it is due: what comes unevenly evens out.
constexpr auto kPreroll = std::chrono::milliseconds(500);
// What a track that is behind regains at least, so that it is not behind again at once.
constexpr auto kLeastCatchUp = kPreroll / 2;

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
  if (!tracks.empty())  // as far as the others
    track.ordering.played = tracks.front().track->ordering.played;
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
      const auto isLessFar = [](std::chrono::microseconds played, const LaneTrack& other) {
        return played < other.track->ordering.played;
      };
      const auto played = each->track->ordering.played;
      std::rotate(each, each + 1, std::upper_bound(each + 1, tracks.end(), played, isLessFar));
      return job;
    }
  }
  return std::nullopt;
}

std::optional<Job> OrderSchedule::Take(PlayingTrack& track, Clock::time_point& wakeUp) {
  PlayingTrack::Ordering& ordering = track.ordering;
  Job job = {&track, ordering.next,
             track.facts.BytesOf(track.facts.sequence.SampleAt(ordering.next)), false,
             Clock::now()};
  if (ordering.clockStart) {
    const Clock::time_point earliest = DueTime(track, ordering.next - ordering.window);
    if (earliest > job.time) {
      wakeUp = std::min(wakeUp, earliest);
      return std::nullopt;
    }
    job.isLate = IsTooLate(track, job.time);
  }
  const bool hasRoom = waitingBytes_ == 0 || waitingBytes_ + job.bytes <= limits_.waitingBytes;
  if (job.isLate)
    job.bytes = 0;
  else if (ordering.waiting >= ordering.window || !hasRoom)
    return std::nullopt;
  ordering.played += track.facts.PlayTime(ordering.next + 1) - track.facts.PlayTime(ordering.next);
  ++ordering.next;
  ++ordering.waiting;
  waitingBytes_ += job.bytes;
  return job;
}

bool OrderSchedule::IsTooLate(PlayingTrack& track, Clock::time_point now) {
  PlayingTrack::Ordering& ordering = track.ordering;
  const Clock::time_point due = DueTime(track, ordering.next);
  ordering.isBehind |= due <= now;
  // Half as early as an order may be at most.
  const Clock::duration most = (due - DueTime(track, ordering.next - ordering.window)) / 2;
  const Clock::duration early = std::max<Clock::duration>(ordering.catchUp, kLeastCatchUp);
  if (ordering.isBehind && due - now < std::min(early, most))
    return true;
  if (std::exchange(ordering.isBehind, false))
    ordering.resumed = ordering.next;
  return false;
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

// Pictures that were ordered before the track last caught up are told no news.
Clock::duration OrderSchedule::Lateness(const Job& job) {
  const Clock::time_point now = Clock::now();
  const std::lock_guard<std::mutex> lock(access_);
  if (!limits_.realtime)
    return {};
  PlayingTrack::Ordering& ordering = job.track->ordering;
  if (!ordering.clockStart) {  // pictures after the first may be decoded before it
    ordering.clockStart = now + kPreroll - job.track->facts.PlayTime(0);
    Changed();
  }
  const Clock::duration lateness = now - DueTime(*job.track, job.position);
  if (lateness > Clock::duration() && job.position >= ordering.resumed) {
    ordering.isBehind = true;
    ordering.catchUp = now - job.time;
  }
  return std::max(lateness, Clock::duration());
}

bool OrderSchedule::HasPassed(const Job& job) {
  const std::lock_guard<std::mutex> lock(access_);
  if (!job.track->ordering.clockStart || DueTime(*job.track, job.position) > Clock::now())
    return false;
  job.track->ordering.isBehind |= job.position >= job.track->ordering.resumed;
  return true;
}

Clock::time_point OrderSchedule::DueTime(const PlayingTrack& track, int64_t position) {
  return *track.ordering.clockStart + track.facts.PlayTime(position);
}

}  // namespace Moravel::Play
