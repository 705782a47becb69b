#include "playing/PreloadLoop.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

#include "Player/QELSample.h"
#include "command/Problem.h"

namespace Moravel::Play {

namespace {

// A server that comes back within some seconds costs a few pictures. After that many failures in a
// row of the server its tracks are given up, and of a track, that track alone.
constexpr int kMaxFailuresInARow = 10;
constexpr std::chrono::milliseconds kPauseAfterFailure{100};

void Pause(std::chrono::milliseconds time, std::stop_token stop) {
  std::mutex access;
  std::condition_variable_any never;
  std::unique_lock<std::mutex> lock(access);
  never.wait_for(lock, stop, time, [] { return false; });
}

int64_t CompressedBytes(const Player::ISample& sample) {
  int64_t bytes = 0;
  if (const auto* const qelSample = dynamic_cast<const Player::QELSample*>(&sample)) {
    for (const qel::SampleConstPtr& part : qelSample->GetContainer()->GetAllSamples())
      bytes += part && part->GetData() ? part->GetData()->GetDataSize() : 0;
  }
  return bytes;
}

// All from that position on.
void AddUnplayed(PlayingTrack& track, int64_t position) {
  constexpr int64_t kMaxListed = 1'000'000;  // one by one
  const PlaySequence& sequence = track.facts.sequence;
  Losses& losses = track.statistics.losses;
  const int64_t end = sequence.Count();
  if (sequence.IsConsecutive() && position < end) {
    const auto [first, last] = std::minmax(sequence.SampleAt(position), sequence.SampleAt(end - 1));
    losses.Add(PictureState::Missing, first, last);
    return;
  }
  const int64_t listed = std::min(end, position + kMaxListed);
  for (; position < listed; ++position)
    losses.Add(PictureState::Missing, sequence.SampleAt(position), sequence.SampleAt(position));
  losses.AddUnlisted(PictureState::Missing, end - listed);
}

std::string ReasonOfMissing(const Track& track, int64_t sample) {
  if (sample >= track.sampleCount)
    return "the track has " + std::to_string(track.sampleCount) + " samples";
  return "the track holds no picture there";
}

}  // namespace

struct PreloadLoop::Answer {
  bool failed = false;
  std::string reason;  // empty: the library has logged it
};

void PreloadLoop::Run(std::stop_token stop) {
  std::vector<PlayingTrack*> active;
  for (const auto& track : server_.tracks)
    active.push_back(track.get());
  for (int64_t position = 0; !active.empty() && !stop.stop_requested(); ++position) {
    std::erase_if(active, [&](PlayingTrack* track) {
      return position >= track->facts.sequence.Count() || !PreloadOne(*track, position, stop);
    });
  }
  queue_.ProducerDone();
}

bool PreloadLoop::PreloadOne(PlayingTrack& track, int64_t position, std::stop_token stop) {
  if (!track.cache.WaitForRoom(stop))
    return false;
  const Time::TimePoint time = track.facts.TimeOf(track.facts.sequence.SampleAt(position));
  const Answer answer = Order(track, time);
  Player::ISample* const sample = track.cache.Protect(time);
  TrackStatistics& statistics = track.statistics;
  Task task = {&track, position, sample};
  if (sample != nullptr) {
    ++statistics.preloaded;
    statistics.bytes += CompressedBytes(*sample);
  } else {
    task.state = answer.failed ? PictureState::Unreadable : PictureState::Missing;
    ++(answer.failed ? statistics.errors : statistics.missing);
    const int64_t number = track.facts.sequence.SampleAt(position);
    statistics.losses.Tell(track.facts, task.state, number, "",
                           answer.failed ? answer.reason : ReasonOfMissing(track.facts, number));
  }
  queue_.Push(task);
  if (answer.failed)
    return GoOnAfterFailure(track, position, stop);
  failuresInARow_ = 0;
  failuresOfTrack_.erase(&track);
  return true;
}

PreloadLoop::Answer PreloadLoop::Order(PlayingTrack& track, const Time::TimePoint& time) {
  const Player::PreloadOrder order(time, track.facts.sampleRate, &track.cache, track.facts.id);
  TrackStatistics& statistics = track.statistics;
  const Clock::time_point start = Clock::now();
  if (!statistics.firstOrder)
    statistics.firstOrder = start;
  Answer answer;
  try {
    answer.failed = server_.preloader->Preload(order) == Player::IPreloader::PreloadResult::ERROR;
  } catch (const std::exception& error) {
    answer = {true, ReasonOf(error, track.facts.id)};
  }
  statistics.lastAnswer = Clock::now();
  if (!answer.failed)
    statistics.latency.Add(statistics.lastAnswer - start);
  return answer;
}

bool PreloadLoop::GoOnAfterFailure(PlayingTrack& track, int64_t position, std::stop_token stop) {
  const int failures = std::max(++failuresInARow_, ++failuresOfTrack_[&track]);
  if (failures < kMaxFailuresInARow) {
    Pause(kPauseAfterFailure * failures, stop);
    return true;
  }
  const int64_t left = track.facts.sequence.Count() - position - 1;
  track.statistics.missing += left;
  AddUnplayed(track, position + 1);
  PrintProblem(track.facts.name + ": gave up after " + std::to_string(kMaxFailuresInARow) +
               " failures in a row, " + std::to_string(left) + " samples not played");
  return false;
}

}  // namespace Moravel::Play
