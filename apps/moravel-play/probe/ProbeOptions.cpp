#include "probe/ProbeOptions.h"

#include <algorithm>
#include <thread>

#include "command/CommandLine.h"

namespace Moravel::Play {

const CommandText kProbeText = {
    "probe",
    "TRACK... [OPTION]...",
    "tells what a track is, and with --scan which of its pictures are damaged",
    {"Tells what motion-JPEG tracks are: their container, pictures, rate, duration and time code, "
     "how many bytes a sample has, what it costs to read the index, and what is wrong with them. "
     "Of the pictures only the first one is read.",
     "With --scan all pictures are read and decoded. Those that are damaged, missing or unreadable "
     "are listed by their sample numbers, which count from 0, and their times.",
     "A TRACK is a motion-JPEG file (AVI or MOV), or track n of a storage server that runs "
     "elsewhere: ADDRESS:PORT:Tn or http://ADDRESS:PORT/tracks/n."},
    {{"moravel-play probe clip.avi", "tells what the file holds"},
     {"moravel-play probe --scan 10.0.0.5:8080:T7 10.0.0.5:8080:T8",
      "looks for damaged pictures in two tracks of a server"},
     {"moravel-play probe --json *.mov", "tells programs about many files"}},
    {{0, "all is told; with --scan, all pictures are good"},
     {1, "with --scan: some pictures are damaged or missing"},
     {2, "wrong usage"},
     {3, "a storage server or a track could not be reached or read"},
     {4, "standard output could not be written"},
     {130, "interrupted (the second interrupt stops at once)"}}};

std::variant<ProbeOptions, std::string> ParseProbeOptions(int argc, const char* const* argv) {
  ProbeOptions options;
  options.jobs = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  std::vector<std::string> tracks;
  CommandLine line(kProbeText);
  CLI::App& app = line.App();
  line.Group("What to look at");
  app.add_option("TRACK", tracks)->required();
  app.add_flag("--scan", options.scan, "Read and decode every picture, list the damaged ones");
  line.Group("How");
  app.add_option("--jobs", options.jobs, "Threads that scan, 1 to 256 (default: the cores)")
      ->check(CLI::Range(1, 256).description(""))
      ->type_name("N");
  line.Group("Report");
  app.add_flag("--json", options.json, "Report as one JSON object on standard output");
  line.AddVerbosity(options.quiet, options.logLevel);
  if (const auto text = line.Read(argc, argv))
    return *text;
  for (const std::string& text : tracks)
    options.tracks.push_back(ParseTrackArgument(text));
  return options;
}

}  // namespace Moravel::Play
