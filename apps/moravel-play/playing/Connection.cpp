#include "playing/Connection.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "Player/QELSample.h"
#include "command/Problem.h"
#include "elements/StopScope.h"
#include "elements/storage/FileFault.h"
#include "tracks/TrackSetup.h"

namespace Moravel::Play {

namespace {

constexpr std::chrono::milliseconds kPauseAfterFailure{100};

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
  if (track.LastsNoTime(sample))
    return "the track shows it for no time";
  if (sample >= track.sampleCount)
    return "the track has " + std::to_string(track.sampleCount) + " samples";
  return "the track holds no picture there";
}

void TellProblems(const Track& track) {
  std::string all;
  for (const std::string& problem : track.problems)
    all += (all.empty() ? "" : "; ") + problem;
  if (!all.empty())
    PrintProblem(track.name + ": " + all);
}

}  // namespace

Connection::Connection(ConnectionPlan plan, const Playback& playback)
    : plan_(std::move(plan)), playback_(playback) {}

void Connection::Run(std::stop_token stop) {
  const qel::StopScope scope(stop);
  auto toOpen = plan_.toOpen.begin();
  while (!stop.stop_requested()) {
    auto patience = OrderSchedule::Patience::Wait;
    if (toOpen != plan_.toOpen.end()) {
      Open(*toOpen);
      if (++toOpen == plan_.toOpen.end())
        playback_.schedule.OpenerDone(plan_.lane);
      else
        patience = OrderSchedule::Patience::DoNotWait;
    }
    const Clock::time_point start = Clock::now();
    const auto job = playback_.schedule.Next(plan_.lane, plan_.number, patience, stop);
    plan_.statistics->waiting.Add(Clock::now() - start);
    if (job)
      Preload(*job, stop);
    else if (patience == OrderSchedule::Patience::Wait)
      return;
  }
}

void Connection::Open(const NamedTrack& named) {
  const Clock::time_point start = Clock::now();
  try {
    SelectSource(named.id);
    auto track = std::make_unique<PlayingTrack>(
        ChooseSamples(DescribeTrack(named, source_.Media()->GetDefinedOutput("")),
                      playback_.options),
        plan_.statistics, plan_.serving);
    TellProblems(track->facts);
    track->decoders = playback_.decoders.For(track->facts, source_.Media());
    PlayingTrack& added = playback_.tracks.Add(std::move(track));
    ForEachSink(playback_.sinks, playback_.stopper,
                [&](IPictureSink& sink) { sink.Begin(added.facts); });
    const bool isShared = !added.facts.sequence.IsConsecutive();
    playback_.schedule.Add(plan_.lane, isShared ? std::nullopt : std::optional(plan_.number),
                           std::max(playback_.options.window, 2 * plan_.connections), added);
  } catch (const UsageError& error) {
    playback_.tracks.AddFailed(named.index, {named.name, ReasonOf(error, named.id)}, true);
  } catch (const std::exception& error) {
    if (!playback_.stopper.Token().stop_requested())
      playback_.tracks.AddFailed(named.index, {named.name, ReasonOf(error, named.id)}, false);
  }
  AddAsking(Clock::now() - start);
}

void Connection::AddAsking(Clock::duration time) {
  plan_.statistics->asking.Add(time);
  plan_.serving->asking.Add(time);
}

void Connection::SelectSource(const Player::TrackId& id) {
  source_.Select(id);
  if (!std::exchange(hasSource_, true))
    preloader_.SetStorageSource(id.StorageId(), source_.Media(), source_.Control());
}

void Connection::Preload(const Job& job, std::stop_token stop) {
  PlayingTrack& track = *job.track;
  TrackStatistics& statistics = track.statistics;
  const int64_t number = track.facts.sequence.SampleAt(job.position);
  const bool isOrdered = !job.isLate && !track.facts.LastsNoTime(number);
  const Clock::time_point begin = Clock::now();
  const Answer answer = isOrdered ? Order(track, job.position) : Answer();
  if (stop.stop_requested() && answer.failure != Answer::Failure::None)
    return;
  Task task = {job, isOrdered ? track.cache.Protect(track.facts.TimeOf(number)) : nullptr};
  if (task.sample != nullptr) {
    ++statistics.preloaded;
    statistics.bytes += CompressedBytes(*task.sample);
  } else if (job.isLate) {
    task.state = PictureState::Late;
    CountDropped(track, number);
  } else if (answer.failure != Answer::Failure::None) {
    task.state = PictureState::Unreadable;
    ++statistics.errors;
    statistics.losses.Tell(track.facts, task.state, number, "", answer.reason);
  } else {
    task.state = PictureState::Missing;
    ++statistics.missing;
    statistics.losses.Tell(track.facts, task.state, number, "",
                           ReasonOfMissing(track.facts, number));
  }
  playback_.queue.Push(task);
  if (answer.failure != Answer::Failure::None) {
    CountFailure(track, answer.failure, Clock::now() - begin, stop);
  } else if (isOrdered) {
    failures_ = {};
    failuresOfTrack_.erase(&track);
  }
}

Connection::Answer Connection::Order(PlayingTrack& track, int64_t position) {
  using Failure = Answer::Failure;
  const Time::TimePoint time = track.facts.TimeOf(track.facts.sequence.SampleAt(position));
  const Player::PreloadOrder order(time, track.facts.OrderRate(), &track.cache, track.facts.id);
  const Moment begin = MomentOf(track, playback_.workers);
  Answer answer;
  try {
    if (!hasSource_)
      SelectSource(track.facts.id);
    if (preloader_.Preload(order) == Player::IPreloader::PreloadResult::ERROR)
      answer.failure = Failure::Lasting;
  } catch (const qel::FileFaultError& error) {
    answer = {Failure::OfTheFile, ReasonOf(error, track.facts.id)};
  } catch (const std::exception& error) {
    answer = {Failure::Passing, ReasonOf(error, track.facts.id)};
  }
  const Clock::duration taken = Clock::now() - begin.time;
  AddAsking(taken);
  TrackStatistics& statistics = track.statistics;
  statistics.asking.Add(taken);
  const std::lock_guard<std::mutex> lock(statistics.ordersAccess);
  if (!statistics.begin || begin.time < statistics.begin->time)
    statistics.begin = begin;
  Extend(statistics, MomentOf(track, playback_.workers));
  if (answer.failure == Failure::None)
    statistics.latency.Add(taken);
  return answer;
}

// What is wrong with the file stays wrong, and says nothing of its server. All tracks of a hopeless
// server are given up, one by one, and of a hopeless track, that track alone.
void Connection::CountFailure(PlayingTrack& track, Answer::Failure failure, Clock::duration took,
                              std::stop_token stop) {
  if (failure == Answer::Failure::OfTheFile)
    return;
  FailuresInARow& ofTrack = failuresOfTrack_[&track];
  failures_.Add(took);
  ofTrack.Add(took);
  for (const FailuresInARow& failures : {failures_, ofTrack}) {
    if (failures.AreHopeless())
      return GiveUp(track, failures.Count());
  }
  if (failure == Answer::Failure::Passing)
    Pause(kPauseAfterFailure * std::max(failures_.Count(), ofTrack.Count()), stop);
}

void Connection::Pause(std::chrono::milliseconds time, std::stop_token stop) {
  const Clock::time_point start = Clock::now();
  std::mutex access;
  std::condition_variable_any never;
  std::unique_lock<std::mutex> lock(access);
  never.wait_for(lock, stop, time, [] { return false; });
  plan_.statistics->pausing.Add(Clock::now() - start);
  plan_.serving->asking.Add(Clock::now() - start);
}

void Connection::GiveUp(PlayingTrack& track, int failures) {
  const auto position = playback_.schedule.Close(track);
  if (!position)
    return;
  const int64_t left = track.facts.sequence.Count() - *position;
  track.statistics.missing += left;
  AddUnplayed(track, *position);
  PrintProblem(track.facts.name + ": gave up after " + std::to_string(failures) +
               " failures in a row, " + std::to_string(left) + " samples not played");
}

}  // namespace Moravel::Play
