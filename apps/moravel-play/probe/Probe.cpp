#include "probe/Probe.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <future>
#include <map>
#include <system_error>

#include "command/ExitCode.h"
#include "command/Host.h"
#include "command/Interrupt.h"
#include "command/ParsedOptions.h"
#include "command/Problem.h"
#include "elements/StopScope.h"
#include "probe/ProbeOptions.h"
#include "probe/ProbeReport.h"
#include "probe/SampleReader.h"
#include "sinks/OutputFile.h"

namespace Moravel::Play {

namespace {

constexpr std::chrono::milliseconds kBetweenSignals{50};  // for signals, and to draw the progress

// What came of some tracks, by their index on the command line.
struct Probed {
  std::map<int, ProbedTrack> tracks;
  std::map<int, FailedTrack> failed;
};

// The tracks of one server, one after the other.
Probed ProbeServer(const std::vector<NamedTrack>& tracks, const ProbeOptions& options, int jobs,
                   ScanProgress& progress, std::stop_token stop) {
  const qel::StopScope scope(stop);
  Probed probed;
  TrackSource source;
  for (const NamedTrack& named : tracks) {
    if (stop.stop_requested())
      break;
    try {
      ProbedTrack track = ProbeTrack(source, named);
      if (options.scan)
        track.scan = ScanTrack(source, track.track, *track.index, jobs, progress, stop);
      probed.tracks.emplace(named.index, std::move(track));
      Forget(source, named.id);
    } catch (const std::system_error&) {  // no threads: no fault of the track
      throw;
    } catch (const std::exception& error) {
      if (!stop.stop_requested())
        probed.failed[named.index] = {named.name, ReasonOf(error, named.id)};
    }
  }
  return probed;
}

// A line of the terminal that tells how far the scans are, while it lives.
class ScanLine {
 public:
  explicit ScanLine(bool wanted) : shown_(wanted && ::isatty(STDERR_FILENO) == 1) {}
  ~ScanLine() {
    if (shown_)
      std::fputs("\r\033[K", stderr);
  }
  ScanLine(const ScanLine&) = delete;
  ScanLine& operator=(const ScanLine&) = delete;

  void Draw(const ScanProgress& progress) const {
    const int64_t all = progress.all, done = progress.done;
    if (shown_ && all > 0)
      std::fprintf(stderr, "\033[Kscanned %3.0f %%: %lld of %lld samples\r",
                   100.0 * static_cast<double>(done) / static_cast<double>(all),
                   static_cast<long long>(done), static_cast<long long>(all));
  }

 private:
  const bool shown_;
};

// All servers at the same time; this thread looks after the user.
Probed ProbeAll(const NamedTracks& named, const ProbeOptions& options) {
  Probed all;
  all.failed = named.failed;
  std::stop_source stop;
  ScanProgress progress;
  const ScanLine line(options.scan && !options.quiet);
  const int servers = static_cast<int>(std::max<size_t>(1, named.servers.size()));
  const int jobs = std::max(1, options.jobs / servers);
  std::vector<std::future<Probed>> probing;
  for (const auto& [id, tracks] : named.servers) {
    probing.push_back(std::async(std::launch::async, ProbeServer, std::cref(tracks),
                                 std::cref(options), jobs, std::ref(progress), stop.get_token()));
  }
  for (std::future<Probed>& future : probing) {
    while (future.wait_for(kBetweenSignals) != std::future_status::ready) {
      if (Interrupted())
        stop.request_stop();
      line.Draw(progress);
    }
    Probed probed = future.get();
    all.tracks.merge(probed.tracks);
    all.failed.merge(probed.failed);
  }
  return all;
}

int ExitCodeOf(const ProbeOutcome& outcome) {
  const auto has = [&](auto what) {
    return std::any_of(outcome.tracks.begin(), outcome.tracks.end(),
                       [&](const ProbedTrack& track) { return track.scan && what(*track.scan); });
  };
  if (outcome.interrupted)
    return kExitInterrupted;
  if (!outcome.failed.empty() || has([](const ScanResult& scan) { return scan.isUnreadable; }))
    return kExitUnreadable;
  return has([](const ScanResult& scan) { return scan.samplesLost != 0; }) ? kExitPicturesLost
                                                                           : kExitFine;
}

void PrintProbed(const ProbeOptions& options, const ProbeOutcome& outcome) {
  std::string text;
  if (options.quiet && !options.json)
    return;
  if (options.json) {
    text = ToJson(outcome);
  } else {
    for (const ProbedTrack& track : outcome.tracks)
      text += (text.empty() ? "" : "\n") + ToText(track);
  }
  WriteToStandardOutput(text);
}

int Probe(const ProbeOptions& options) {
  Probed probed = ProbeAll(NameTracks(options.tracks), options);
  ProbeOutcome outcome;
  outcome.interrupted = Interrupted();
  for (auto& [index, track] : probed.tracks)
    outcome.tracks.push_back(std::move(track));
  for (auto& [index, track] : probed.failed) {
    PrintProblem(track.name + ": " + track.reason);
    outcome.failed.push_back(std::move(track));
  }
  outcome.exitCode = ExitCodeOf(outcome);
  if (outcome.interrupted)
    PrintProblem("interrupted");
  PrintProbed(options, outcome);
  return outcome.exitCode;
}

}  // namespace

int RunProbe(int argc, const char* const* argv) {
  return RunParsed(ParseProbeOptions(argc, argv), [](const ProbeOptions& options) {
    StartHost(options.logLevel);
    return Probe(options);
  });
}

}  // namespace Moravel::Play
