#include "playing/Play.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <system_error>
#include <thread>

#include "command/ExitCode.h"
#include "command/Host.h"
#include "command/Interrupt.h"
#include "command/ParsedOptions.h"
#include "command/Problem.h"
#include "playing/Connection.h"
#include "playing/DecodeWorkers.h"
#include "report/Progress.h"
#include "report/Report.h"
#include "sinks/ContactSheet.h"
#include "sinks/JpegSink.h"
#include "sinks/OutputFile.h"
#include "sinks/PngSink.h"
#include "sinks/Y4mSink.h"

namespace Moravel::Play {

namespace {

constexpr std::chrono::milliseconds kLookAround{50};  // for signals, and to draw the progress bar
constexpr size_t kMaxTracksOfLane = 256;              // what one source keeps open
// That are asked for with the opening of files that are played from their beginning: of each,
// enough for the first picture, and of all together.
constexpr int64_t kBeginningBytes = int64_t{1} << 20;
constexpr int64_t kAllBeginningBytes = int64_t{16} << 20;

int64_t BeginningBytes(const Options& options) {
  if (options.order != Order::Forward || options.start != TimeArgument())
    return 0;
  return std::min(kBeginningBytes,
                  kAllBeginningBytes / static_cast<int64_t>(options.tracks.size()));
}

PictureSinks MakeSinks(const Options& options) {
  PictureSinks sinks;
  if (!options.pngFolder.empty())
    sinks.push_back(std::make_unique<PngSink>(options.pngFolder));
  if (!options.jpegFolder.empty())
    sinks.push_back(std::make_unique<JpegSink>(options.jpegFolder));
  if (!options.contactSheet.empty()) {
    const size_t sections = options.tracks.size() * std::max<size_t>(1, options.sizes.size());
    sinks.push_back(std::make_unique<ContactSheet>(options.contactSheet, sections));
  }
  if (!options.y4mFile.empty())
    sinks.push_back(std::make_unique<Y4mSink>(options.y4mFile));
  return sinks;
}

// The lanes of a server, so that no source opens more tracks than it keeps, and the connections of
// each. In sequence a track stays at its connection, which reads ahead of it; at random its samples
// come through any.
std::vector<ConnectionPlan> PlanConnections(const NamedTracks& named, const Options& options) {
  std::vector<ConnectionPlan> plans;
  size_t lane = 0;
  for (const auto& [id, tracks] : named.servers) {
    const auto statistics = std::make_shared<ServerStatistics>();
    for (size_t first = 0; first < tracks.size(); first += kMaxTracksOfLane, ++lane) {
      const size_t count = std::min(kMaxTracksOfLane, tracks.size() - first);
      const auto wanted = static_cast<size_t>(options.connections);
      const size_t connections = options.order == Order::Random ? wanted : std::min(wanted, count);
      statistics->connections += static_cast<int>(connections);
      std::vector<ConnectionPlan> ofLane(connections);
      const auto all = std::make_shared<ServingConnections>();
      all->count = static_cast<int>(connections);
      for (size_t i = 0; i < connections; ++i) {
        const auto own = std::make_shared<ServingConnections>();
        ofLane[i] = {lane, static_cast<int>(i), static_cast<int>(connections),
                     {},   statistics,          options.order == Order::Random ? all : own};
      }
      for (size_t i = 0; i < count; ++i)
        ofLane[i % connections].toOpen.push_back(tracks[first + i]);
      plans.insert(plans.end(), ofLane.begin(), ofLane.end());
    }
  }
  return plans;
}

// A task of a thread, which ends the playback when it fails.
template <typename Task>
auto Guarded(Stopper& stopper, Task task) {
  return [&stopper, task = std::move(task)]() noexcept {
    try {
      task();
    } catch (...) {
      stopper.Fail(std::current_exception());
    }
  };
}

// The threads of a playback. When one cannot be made, the others end.
class Threads {
 public:
  explicit Threads(Stopper& stopper) : stopper_(stopper) {}
  ~Threads() { Join(); }
  Threads(const Threads&) = delete;
  Threads& operator=(const Threads&) = delete;

  template <typename Task>
  void Start(Task task) {
    try {
      threads_.emplace_back([this, guarded = Guarded(stopper_, std::move(task))] {
        guarded();
        const std::lock_guard<std::mutex> lock(endedAccess_);
        ++ended_;
        anEnd_.notify_one();
      });
    } catch (const std::system_error& error) {
      throw std::runtime_error(std::string("cannot start a thread: ") + error.code().message());
    }
  }
  // Whether all have ended, or do within that time.
  bool WaitFor(std::chrono::milliseconds time) {
    std::unique_lock<std::mutex> lock(endedAccess_);
    return anEnd_.wait_for(lock, time, [this] { return ended_ == threads_.size(); });
  }
  void Join() {
    for (std::thread& thread : threads_) {
      if (thread.joinable())
        thread.join();
    }
  }

 private:
  Stopper& stopper_;
  std::mutex endedAccess_;  // guards ended_
  std::condition_variable anEnd_;
  size_t ended_ = 0;
  std::vector<std::thread> threads_;  // the last: they use all of the above
};

void StartThreads(Threads& threads, std::vector<ConnectionPlan> plans, const Playback& playback) {
  for (const ConnectionPlan& plan : plans) {
    if (!plan.toOpen.empty())
      playback.schedule.AddOpener(plan.lane);
  }
  for (ConnectionPlan& plan : plans) {
    threads.Start([&playback, plan = std::move(plan)] {
      Connection(plan, playback).Run(playback.stopper.Token());
      playback.queue.ProducerDone();
    });
  }
  for (int worker = 0; worker < playback.options.jobs; ++worker) {
    threads.Start([&playback, worker] { DecodeSamples(static_cast<size_t>(worker), playback); });
  }
}

// Runs all threads to their end; this one looks after the user meanwhile.
void RunThreads(std::vector<ConnectionPlan> plans, const Playback& playback) {
  Stopper& stopper = playback.stopper;
  Progress progress(playback.tracks, !playback.options.quiet);
  Threads threads(stopper);
  try {
    StartThreads(threads, std::move(plans), playback);
    while (!threads.WaitFor(kLookAround)) {
      if (Interrupted())
        stopper.Interrupt();
      progress.Draw();
    }
  } catch (...) {
    stopper.Fail(std::current_exception());
  }
  threads.Join();
}

bool LostPictures(const std::vector<PlayingTrack*>& tracks) {
  return std::any_of(tracks.begin(), tracks.end(), [](const PlayingTrack* track) {
    const TrackStatistics& statistics = track->statistics;
    return !track->facts.problems.empty() || statistics.missing != 0 || statistics.dropped != 0 ||
           statistics.late != 0 ||
           std::any_of(statistics.sizes.begin(), statistics.sizes.end(),
                       [](const SizeStatistics& size) { return size.damaged != 0; });
  });
}

bool HadErrors(const std::vector<PlayingTrack*>& tracks) {
  return std::any_of(tracks.begin(), tracks.end(),
                     [](const PlayingTrack* track) { return track->statistics.errors != 0; });
}

int FindExitCode(const TrackList& list, const Stopper& stopper) {
  const std::vector<PlayingTrack*> tracks = list.Open();
  if (stopper.Interrupted())
    return kExitInterrupted;
  if (stopper.OutputFailure())
    return kExitUnwritable;
  if (list.HasUnreadable() || HadErrors(tracks))
    return kExitUnreadable;
  if (list.HasWrongUsage())
    return kExitUsage;
  return LostPictures(tracks) ? kExitPicturesLost : kExitFine;
}

// People have read why nothing was played.
void WriteReport(const Options& options, const Outcome& outcome) {
  if (options.json)
    WriteToStandardOutput(ToJson(outcome));
  const bool nothingPlayed =
      std::all_of(outcome.tracks.begin(), outcome.tracks.end(),
                  [](const PlayingTrack* track) { return track->statistics.samplesDone == 0; });
  if (options.quiet || (nothingPlayed && !outcome.interrupted))
    return;
  const bool standardOutputIsTaken = options.json || options.WritesPicturesToStandardOutput();
  if (standardOutputIsTaken)
    std::fputs(ToTable(outcome).c_str(), stderr);
  else
    WriteToStandardOutput(ToTable(outcome));
}

int PlayTracks(const Options& options) {
  Stopper stopper;
  NamedTracks named = NameTracks(options.tracks);
  TrackList tracks(options.tracks.size());
  for (auto& [index, track] : named.failed)
    tracks.AddFailed(index, std::move(track), false);
  std::vector<ConnectionPlan> plans = PlanConnections(named, options);

  DecoderPool decoders(options.jobs, options.format);
  OrderSchedule schedule({options.window, options.waitingBytes, options.realtime},
                         plans.empty() ? 0 : plans.back().lane + 1);
  WorkQueue queue(plans.size());
  WorkerStatistics workers;
  const Clock::time_point start = Clock::now();
  {
    const PictureSinks sinks = MakeSinks(options);
    RunThreads(std::move(plans),
               {options, tracks, decoders, schedule, queue, sinks, workers, stopper});
    stopper.RethrowFailure();
    ForEachSink(sinks, stopper, [](IPictureSink& sink) { sink.Finish(); });
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (const auto failure = stopper.OutputFailure())
    PrintProblem(*failure);
  for (const PlayingTrack* track : tracks.Open())
    track->statistics.losses.TellRest(track->facts);
  const int exitCode = FindExitCode(tracks, stopper);
  WriteReport(options, {tracks.Open(), tracks.Failed(), workers, options, seconds,
                        stopper.Interrupted(), exitCode});
  return exitCode;
}

}  // namespace

int Play(const Options& options) {
  try {
    return PlayTracks(options);
  } catch (const OutputError& error) {
    PrintProblem(error.what());
    return kExitUnwritable;
  } catch (const ClosedPipe&) {
    return kExitFine;
  }
}

int RunPlay(int argc, const char* const* argv) {
  return RunParsed(ParseOptions(argc, argv), [](const Options& options) {
    StartHost(options.logLevel, BeginningBytes(options));
    return Play(options);
  });
}

}  // namespace Moravel::Play
