#include "playing/Play.h"

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <thread>

#include "command/ExitCode.h"
#include "command/Host.h"
#include "command/Interrupt.h"
#include "command/Problem.h"
#include "host/LiveQueues.h"
#include "playing/DecodeWorkers.h"
#include "playing/PreloadLoop.h"
#include "report/Progress.h"
#include "report/Report.h"
#include "sinks/ContactSheet.h"
#include "sinks/OutputFile.h"
#include "sinks/PngSink.h"
#include "sinks/Y4mSink.h"
#include "tracks/TrackSetup.h"

namespace Moravel::Play {

namespace {

constexpr std::chrono::milliseconds kLookAround{50};  // for signals, and to draw the progress bar

PictureSinks MakeSinks(const Options& options) {
  PictureSinks sinks;
  if (!options.pngFolder.empty())
    sinks.push_back(std::make_unique<PngSink>(options.pngFolder));
  if (!options.contactSheet.empty()) {
    const size_t sections = options.tracks.size() * std::max<size_t>(1, options.sizes.size());
    sinks.push_back(std::make_unique<ContactSheet>(options.contactSheet, sections));
  }
  if (!options.y4mFile.empty())
    sinks.push_back(std::make_unique<Y4mSink>(options.y4mFile));
  return sinks;
}

// The caches as the live queues of the preloaders, as long as the object.
class Registration {
 public:
  explicit Registration(Setup& setup) : setup_(setup) {
    for (PlayingServer& server : setup_.servers) {
      for (const auto& track : server.tracks)
        queues_.Add(&track->cache);
      server.preloader->SetExistingCacheUpdateQueues(&queues_);
    }
  }
  ~Registration() {
    for (PlayingServer& server : setup_.servers)
      server.preloader->SetExistingCacheUpdateQueues(nullptr);
  }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

 private:
  Setup& setup_;
  Player::LiveQueues queues_;
};

// Counts the decode workers that have ended.
class WorkersEnd {
 public:
  explicit WorkersEnd(int workers) : left_(workers) {}

  void Arrive() {
    const std::lock_guard<std::mutex> lock(leftAccess_);
    --left_;
    arrived_.notify_one();
  }

  bool WaitFor(std::chrono::milliseconds time) {
    std::unique_lock<std::mutex> lock(leftAccess_);
    return arrived_.wait_for(lock, time, [this] { return left_ == 0; });
  }

 private:
  std::mutex leftAccess_;  // guards left_
  std::condition_variable arrived_;
  int left_;
};

// Runs all threads to their end; this one looks after the user meanwhile.
void RunThreads(const Options& options, Setup& setup, const PictureSinks& sinks, Stopper& stopper) {
  const Registration registration(setup);
  WorkQueue queue(setup.servers.size());
  WorkersEnd end(options.jobs);
  Progress progress(setup.tracks, !options.quiet);
  std::vector<std::jthread> preloaders;
  for (PlayingServer& server : setup.servers) {
    preloaders.emplace_back(
        [&server, &queue, token = stopper.Token()] { PreloadLoop(server, queue).Run(token); });
  }
  const DecodeWorkers workers(options.jobs, queue, sinks, stopper, [&end] { end.Arrive(); });
  while (!end.WaitFor(kLookAround)) {
    if (Interrupted())
      stopper.Interrupt();
    progress.Draw();
  }
}

void FinishSinks(const PictureSinks& sinks, Stopper& stopper) {
  for (const auto& sink : sinks) {
    try {
      sink->Finish();
    } catch (const ClosedPipe&) {
      stopper.OutputClosed();
    } catch (const std::exception& error) {
      stopper.OutputFailed(error.what());
    }
  }
}

bool LostPictures(const std::vector<PlayingTrack*>& tracks) {
  for (const PlayingTrack* track : tracks) {
    if (track->statistics.missing != 0)
      return true;
    for (const SizeStatistics& size : track->statistics.sizes) {
      if (size.damaged != 0)
        return true;
    }
  }
  return false;
}

bool HadErrors(const std::vector<PlayingTrack*>& tracks) {
  for (const PlayingTrack* track : tracks) {
    if (track->statistics.errors != 0)
      return true;
  }
  return false;
}

int FindExitCode(const Setup& setup, const Stopper& stopper) {
  if (stopper.Interrupted())
    return kExitInterrupted;
  if (stopper.OutputFailure())
    return kExitUnwritable;
  if (!setup.failed.empty() || HadErrors(setup.tracks))
    return kExitUnreadable;
  return LostPictures(setup.tracks) ? kExitPicturesLost : kExitFine;
}

void WriteReport(const Options& options, const Outcome& outcome) {
  if (options.json)
    std::fputs(ToJson(outcome).c_str(), stdout);
  if (!options.quiet && !outcome.tracks.empty()) {
    const bool standardOutputIsTaken = options.json || options.WritesPicturesToStandardOutput();
    std::fputs(ToTable(outcome).c_str(), standardOutputIsTaken ? stderr : stdout);
  }
  std::fflush(stdout);  // nobody minds a reader that has gone
}

int PlayOpened(const Options& options, Setup& setup) {
  Stopper stopper;
  const Clock::time_point start = Clock::now();
  {
    const PictureSinks sinks = MakeSinks(options);
    for (const auto& sink : sinks) {
      for (const PlayingTrack* track : setup.tracks)
        sink->Begin(track->facts);
    }
    RunThreads(options, setup, sinks, stopper);
    FinishSinks(sinks, stopper);
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  if (const auto failure = stopper.OutputFailure())
    PrintProblem(*failure);
  for (const PlayingTrack* track : setup.tracks)
    track->statistics.losses.TellRest(track->facts);
  const int exitCode = FindExitCode(setup, stopper);
  WriteReport(options, {setup.tracks, setup.failed, seconds, stopper.Interrupted(), exitCode});
  return exitCode;
}

}  // namespace

int Play(const Options& options) {
  try {
    Setup setup = OpenTracks(options);
    for (const FailedTrack& track : setup.failed)
      PrintProblem(track.name + ": " + track.reason);
    if (!setup.servers.empty())
      return PlayOpened(options, setup);
    const int exitCode = Interrupted() ? kExitInterrupted : kExitUnreadable;
    if (options.json)
      WriteReport(options, {{}, setup.failed, 0, Interrupted(), exitCode});
    return exitCode;
  } catch (const UsageError& error) {
    PrintProblem(error.what());
    return kExitUsage;
  } catch (const OutputError& error) {
    PrintProblem(error.what());
    return kExitUnwritable;
  } catch (const ClosedPipe&) {
    return kExitFine;
  }
}

int RunPlay(int argc, const char* const* argv) {
  const auto parsed = ParseOptions(argc, argv);
  if (const auto* const text = std::get_if<std::string>(&parsed)) {
    std::fputs(text->c_str(), stdout);
    return kExitFine;
  }
  const Options& options = std::get<Options>(parsed);
  StartHost(options.logLevel);
  return Play(options);
}

}  // namespace Moravel::Play
