#include "view/View.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <map>
#include <thread>

#include "command/CommandLine.h"
#include "command/ExitCode.h"
#include "command/Host.h"
#include "command/Interrupt.h"
#include "command/ParsedOptions.h"
#include "command/Problem.h"
#include "command/TrackArgument.h"
#include "live/LiveEngine.h"
#include "sinks/OutputFile.h"
#include "view/ViewService.h"

namespace Moravel::Play {

namespace {

constexpr std::chrono::milliseconds kLookAround{100};  // for signals and for servers

struct ViewOptions {
  std::vector<TrackArgument> tracks;
  uint16_t port = 0;
  int connections = 4;
  int64_t cacheMegabytes = 256;
};

std::variant<ViewOptions, std::string> ParseViewOptions(int argc, const char* const* argv) {
  ViewOptions options;
  std::vector<std::string> tracks;
  CommandLine line(kViewText);
  line.Group("Options");
  line.App().add_option("TRACK", tracks)->required();
  line.App()
      .add_option("--port", options.port, "Port of the page, 0 for a free one (0)")
      ->check(CLI::Range(0, UINT16_MAX).description(""))
      ->type_name("N");
  line.App()
      .add_option("--connections", options.connections, "To each server, 1 to 16 (4)")
      ->check(CLI::Range(1, 16).description(""))
      ->type_name("N");
  line.App()
      .add_option("--cache", options.cacheMegabytes,
                  "Megabytes of compressed samples that are kept, 1 to 100000 (256)")
      ->check(CLI::Range(1, 100'000).description(""))
      ->type_name("MB");
  if (auto text = line.Read(argc, argv))
    return *text;
  for (const std::string& text : tracks)
    options.tracks.push_back(ParseTrackArgument(text));
  return options;
}

LiveTracks OpenUnlessInterrupted(const std::vector<TrackArgument>& arguments) {
  std::stop_source stop;
  auto opening =
      std::async(std::launch::async, OpenLiveTracks, std::cref(arguments), stop.get_token());
  while (opening.wait_for(kLookAround) != std::future_status::ready) {
    if (Interrupted())
      stop.request_stop();
  }
  return opening.get();
}

// Tells once when a server fails, and once when it answers again.
class ServerWatch {
 public:
  void Look(const FetchFigures& figures) {
    for (const FetchFigures::Server& server : figures.servers) {
      bool& isFailing = failing_[server.name];
      if (isFailing == !server.failure.empty())
        continue;
      isFailing = !isFailing;
      PrintProblem(server.name + ": " + (isFailing ? server.failure : "answers again"));
    }
  }

 private:
  std::map<std::string, bool> failing_;
};

// Until the user ends it.
void Serve(LiveEngine& engine, uint16_t port) {
  ViewService service(engine);
  std::atomic<uint16_t> ours = 0;
  LoopbackServer server(port,
                        [&](const HttpRequest& request) { return service.Answer(request, ours); });
  ours = server.Port();
  WriteToStandardOutput(service.Address(ours) + '\n');
  ServerWatch watch;
  while (!Interrupted()) {
    std::this_thread::sleep_for(kLookAround);
    watch.Look(engine.CurrentFigures().fetching);
  }
  engine.Stop();  // whoever waits is answered: the server can end
}

}  // namespace

const CommandText kViewText = {
    "view",
    "TRACK... [OPTION]...",
    "shows tracks on a page in the browser",
    {"Prints the address of a page, for a browser on this machine, and serves it until it is "
     "interrupted. The page shows the pictures of the tracks as the library decodes them: drag, "
     "step, play forward and backward, jump to a time. It marks pictures that are damaged or "
     "missing and tells how fast server and decoding are.",
     "A TRACK is a motion-JPEG file (AVI or MOV), or a track of a storage server: ADDRESS:PORT:Tn "
     "or http://ADDRESS:PORT/tracks/n.",
     "The address holds a secret that is made anew in every run: who does not know it sees "
     "nothing."},
    {{"moravel-play view clip.avi", "prints an address to open in the browser"},
     {"moravel-play view 10.0.0.5:8080:T7 10.0.0.5:8080:T8", "shows two tracks of a server"}},
    {{0, "ended by an interrupt"},
     {2, "wrong usage"},
     {3, "no track could be opened"},
     {4, "standard output could not be written"}}};

namespace {

int View(const ViewOptions& options) {
  StartHost(orl::mv::logging::ILogger::Level_NoLog);
  LiveTracks live = OpenUnlessInterrupted(options.tracks);
  if (Interrupted())
    return kExitFine;
  for (const FailedTrack& track : live.failed)
    PrintProblem(track.name + ": " + track.reason);
  if (live.servers.empty())
    return kExitUnreadable;
  constexpr int64_t kMegabyte = 1'000'000;
  LiveEngine engine(std::move(live.servers),
                    {options.cacheMegabytes * kMegabyte, options.connections,
                     static_cast<int>(std::max(1u, std::thread::hardware_concurrency()))});
  Serve(engine, options.port);
  return kExitFine;
}

}  // namespace

int RunView(int argc, const char* const* argv) {
  return RunParsed(ParseViewOptions(argc, argv), &View);
}

}  // namespace Moravel::Play
