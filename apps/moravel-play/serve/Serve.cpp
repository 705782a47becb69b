#include "serve/Serve.h"

#include <poll.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "command/ExitCode.h"
#include "command/Host.h"
#include "command/Interrupt.h"
#include "command/ParsedOptions.h"
#include "command/Problem.h"
#include "qelCore/Printable.h"
#include "serve/OwnAddress.h"
#include "serve/ServeOptions.h"
#include "serve/ServedTracks.h"
#include "sinks/OutputFile.h"

namespace Moravel::Play {

namespace {

using orl::mv::logging::ILogger;
using Tracks = std::map<int64_t, std::filesystem::path>;

constexpr int kLookForInterruptMilliseconds = 100;

// "12:34:56.789  10.0.0.7:49152  GET /tracks/7  bytes=0-16383  206  16384 bytes"
void LogAnswer(const Player::StorageServer::Answered& answer) {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  ::localtime_r(&now.tv_sec, &parts);
  char time[32];
  std::snprintf(time, sizeof time, "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min, parts.tm_sec,
                static_cast<int>(now.tv_nsec / 1'000'000));
  const std::string range = answer.range.empty() ? "" : "  " + answer.range;
  const std::string outcome = answer.status == 0 ? "dropped"
                                                 : std::to_string(answer.status) + "  " +
                                                       std::to_string(answer.bodyBytes) + " bytes";
  const std::string line = answer.client + "  " + answer.method + ' ' + answer.path + range + "  ";
  std::fputs((std::string(time) + "  " + qel::Printable(line) + outcome + '\n').c_str(), stderr);
}

// Those that cannot be served are told, and left out.
Tracks Add(const Tracks& wanted, Player::StorageServer& server) {
  Tracks added;
  for (const auto& [number, file] : wanted) {
    try {
      server.AddTrack(number, file);
      added.emplace(number, file);
    } catch (const std::runtime_error& error) {
      PrintProblem(error.what());
    }
  }
  return added;
}

std::string ToText(const Tracks& tracks, const ServeOptions& options, uint16_t port) {
  const std::string server = ReachableAddress(options.address) + ':' + std::to_string(port) + ":T";
  const size_t width = server.size() + std::to_string(tracks.rbegin()->first).size();
  std::string text = std::to_string(tracks.size()) + (tracks.size() == 1 ? " track" : " tracks") +
                     ", served until an interrupt (Ctrl-C). Play one with: moravel-play TRACK\n\n";
  const auto add = [&](std::string track, const std::string& file) {
    track.resize(std::max(width, track.size()), ' ');
    text += track + "  " + file + '\n';
  };
  add("TRACK", "FILE");
  for (const auto& [number, file] : tracks)
    add(server + std::to_string(number), qel::Printable(file.string()));
  return text;
}

int Serve(const ServeOptions& options) {
  Player::StorageServer::Options server = {
      .address = options.address, .port = options.port, .network = options.network};
  if (options.logLevel <= ILogger::Level_Info)
    server.onAnswer = &LogAnswer;
  const Tracks wanted = FindTracks(options.paths);
  Player::StorageServer running(server);
  const Tracks tracks = Add(wanted, running);
  if (tracks.empty())
    return kExitUnreadable;
  if (!options.quiet)
    WriteToStandardOutput(ToText(tracks, options, running.Port()));
  while (!Interrupted())
    ::poll(nullptr, 0, kLookForInterruptMilliseconds);
  return tracks.size() == wanted.size() ? kExitFine : kExitUnreadable;
}

}  // namespace

int RunServe(int argc, const char* const* argv) {
  return RunParsed(ParseServeOptions(argc, argv), [](const ServeOptions& options) {
    StartHost(options.logLevel);
    return Serve(options);
  });
}

}  // namespace Moravel::Play
