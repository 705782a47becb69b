#include "serve/ServeOptions.h"

#include <cmath>

#include "command/CommandLine.h"

namespace Moravel::Play {

namespace {

constexpr double kMaxMegabytes = 1e6;
constexpr int64_t kMaxDelay = 60'000;
constexpr double kPercent = 100;

// A number from 0 on; the ranges of the parser let pass what is no number at all.
CLI::Validator UpTo(double most) {
  return CLI::Validator(
      [most](const std::string& text) {
        double value = 0;
        const bool good = CLI::detail::lexical_cast(text, value) && value >= 0 && value <= most;
        return good ? std::string()
                    : text + ": must be a number from 0 to " + std::to_string(std::llround(most));
      },
      "");
}

}  // namespace

const CommandText kServeText = {
    "serve",
    "DIR|FILE... [OPTION]...",
    "serves files as tracks, for other machines and tools",
    {"Serves motion-JPEG files as tracks of a storage server, until it is interrupted. Prints the "
     "number of each track, the address to play it from, and its name. Whoever can reach the port "
     "can read these files, and no others.",
     "The FILEs are numbered from 1 in the order given. Of a DIR, its AVI and MOV files are served "
     "in the order of their names, and files whose whole name is a number under that number.",
     "Files stay open: what is written to one is seen, what takes its place is not."},
    {{"moravel-play serve /srv/media", "serves the clips of a folder"},
     {"moravel-play serve --address 127.0.0.1 --port 0 clip.avi",
      "serves to this machine alone, on a free port"},
     {"moravel-play serve --rate 12.5 --delay 20 clip.avi", "is a link of 100 Mbit/s far away"},
     {"moravel-play serve -v --drop 1 --truncate 1 clip.avi",
      "loses one answer in a hundred, cuts another one, and logs each"}},
    {{0, "ended by an interrupt"},
     {2, "wrong usage"},
     {3, "a file could not be served, or the address could not be used"},
     {4, "standard output could not be written"}}};

std::variant<ServeOptions, std::string> ParseServeOptions(int argc, const char* const* argv) {
  ServeOptions options;
  double megabytes = 0, dropped = 0, truncated = 0;
  int64_t delay = 0;
  CommandLine line(kServeText);
  CLI::App& app = line.App();
  line.Group("Where");
  app.add_option("PATH", options.paths)->required();
  app.add_option("--address", options.address,
                 "Numeric address to listen on (0.0.0.0: all of this machine)")
      ->type_name("ADDRESS");
  app.add_option("--port", options.port, "Port to listen on, 0 for a free one (8080)")
      ->check(UpTo(UINT16_MAX))
      ->type_name("PORT");
  line.Group("A bad network");
  app.add_option("--rate", megabytes, "Megabytes a second, of all answers together")
      ->check(UpTo(kMaxMegabytes))
      ->type_name("MB/S");
  app.add_option("--delay", delay, "Milliseconds before each answer")
      ->check(UpTo(kMaxDelay))
      ->type_name("MS");
  app.add_option("--drop", dropped, "Of 100 answers, so many do not come: the connection is cut")
      ->check(UpTo(kPercent))
      ->type_name("PERCENT");
  app.add_option("--truncate", truncated, "Of 100 answers, so many are cut in the middle")
      ->check(UpTo(kPercent))
      ->type_name("PERCENT");
  line.Group("Report");
  line.AddVerbosity(options.quiet, options.logLevel);
  if (const auto text = line.Read(argc, argv))
    return *text;
  options.network = {megabytes * 1e6, std::chrono::milliseconds(delay), dropped / kPercent,
                     truncated / kPercent};
  return options;
}

}  // namespace Moravel::Play
