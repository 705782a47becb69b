#include "command/Options.h"

#include <algorithm>
#include <map>
#include <optional>
#include <thread>

#include "command/CommandLine.h"
#include "command/OutputCheck.h"
#include "command/SizeArgument.h"
#include "elements/mjpeg/PixelFormat.h"

namespace Moravel::Play {

namespace {

constexpr int64_t kMaxCount = 1'000'000'000'000;
constexpr int64_t kMaxMemoryMib = 1 << 20;

const std::map<std::string, Order> kOrders = {
    {"forward", Order::Forward}, {"reverse", Order::Reverse}, {"random", Order::Random}};

// Values that go through a check of their own after parsing.
struct RawOptions {
  std::vector<std::string> tracks;
  std::vector<std::string> sizes;
  std::optional<qel::FourCC> format;
  std::string start;
  std::string duration;
  int64_t memoryMib = 256;
};

// Largest first: the elements can then take the smaller ones from the same decode.
std::vector<Size> ParseSizes(const std::vector<std::string>& texts) {
  std::vector<Size> sizes;
  for (const std::string& text : texts) {
    const Size size = ParseSize("--size", text);
    if (std::find(sizes.begin(), sizes.end(), size) == sizes.end())
      sizes.push_back(size);
  }
  std::stable_sort(sizes.begin(), sizes.end(), [](const Size& a, const Size& b) {
    return int64_t(a.width) * a.height > int64_t(b.width) * b.height;
  });
  return sizes;
}

// The help names ranges in words of its own.
template <typename Number>
CLI::Validator Within(Number least, Number most) {
  return CLI::Range(least, most).description("");
}

void DeclareWhat(CommandLine& line, Options& options, RawOptions& raw) {
  CLI::App& app = line.App();
  line.Group("What to play");
  app.add_option("TRACK", raw.tracks)->required();
  app.add_option("--start", raw.start, "Where to begin (0)")->type_name("TIME");
  auto* const count = app.add_option("--count", options.count, "Samples to play of each track")
                          ->check(Within(int64_t(1), kMaxCount))
                          ->type_name("N");
  app.add_option("--duration", raw.duration, "How long to play each track")
      ->excludes(count)
      ->type_name("TIME");
  line.AddChoice("--order", options.order, kOrders, "ORDER",
                 "forward, reverse or random (forward)");
  auto* const fields =
      app.add_flag("--fields", options.fields,
                   "Both fields of interlaced material, each a picture (default: the top field)");
  app.add_flag("--frames", options.frames, "Both fields, woven into frames of the full height")
      ->excludes(fields);
}

void DeclarePictures(CommandLine& line, Options& options, RawOptions& raw) {
  CLI::App& app = line.App();
  line.Group("Pictures");
  app.add_option("--size", raw.sizes,
                 "Picture size, repeatable (default: the track's own; of a field as coded)")
      ->allow_extra_args(false)
      ->type_name("WxH");
  line.AddChoice(
      "--format", raw.format, qel::mjpeg::FormatsByName(), "FOURCC",
      "Pixel format: I420, YV12, I422, YV16, YUYV, YVYU, UYVY, Y800, BGR3, RGB3, BGRA or "
      "RGBA (I420; BGRA for --png, which keeps all colour)");
  line.AddPath("--png", options.pngFolder, "DIR", "Write each picture into this folder");
  line.AddPath("--jpeg", options.jpegFolder, "DIR",
               "Write each sample into this folder as it is stored, fields one by one; nothing is "
               "decoded unless other options ask for it");
  line.AddPath("--contact-sheet", options.contactSheet, "FILE", "Write an overview as a PNG file");
  line.AddPath("--y4m", options.y4mFile, "FILE",
               "Write raw video, - for standard output (one track, one size, I420)");
}

void DeclareHow(CommandLine& line, Options& options, RawOptions& raw) {
  CLI::App& app = line.App();
  line.Group("How");
  app.add_option("--jobs", options.jobs, "Decode workers, 1 to 256 (default: the cores)")
      ->check(Within(1, 256))
      ->type_name("N");
  app.add_option("--window", options.window,
                 "Samples of each track preloaded ahead, 1 to 4096 (16)")
      ->check(Within(1, 4096))
      ->type_name("N");
  app.add_option("--memory", raw.memoryMib,
                 "Mebibytes of samples that wait, of all tracks together (256)")
      ->check(Within(int64_t(1), kMaxMemoryMib))
      ->type_name("MIB");
  app.add_option("--connections", options.connections,
                 "Connections to each server, 1 to 64 (1); at random all serve one track")
      ->check(Within(1, 64))
      ->type_name("N");
  app.add_flag("--realtime", options.realtime,
               "At the tracks' own rate: counts pictures that are late, drops what would be");
  line.Group("Report");
  app.add_flag("--json", options.json, "Report as one JSON object on standard output");
  line.AddVerbosity(options.quiet, options.logLevel);
}

// PNG files hold RGB: made from the decoder's RGB, they keep the colour that I420 halves.
qel::FourCC ChooseFormat(const RawOptions& raw, const Options& options) {
  if (raw.format)
    return *raw.format;
  const bool png = options.y4mFile.empty() && !options.pngFolder.empty();
  return png ? qel::FourCC_BGRA : qel::FourCC_I420;
}

void CheckTogether(const Options& options) {
  for (const Size& size : options.sizes) {
    if (options.frames && size.height % 2 != 0)
      throw UsageError("--frames weaves two fields: --size " + size.ToString() +
                       " needs an even height");
  }
  if (options.y4mFile.empty())
    return;
  if (options.format != qel::FourCC_I420)
    throw UsageError("--y4m holds I420 only: leave out --format");
  if (options.sizes.size() > 1)
    throw UsageError("--y4m holds pictures of one size: give one --size");
  if (options.tracks.size() > 1)
    throw UsageError("--y4m holds one track: give one TRACK");
  if (options.json && options.WritesPicturesToStandardOutput())
    throw UsageError("--json and --y4m - both need standard output: give --y4m a file");
}

// Where the report goes, nothing else may go.
void CheckFiles(const Options& options) {
  std::vector<std::filesystem::path> files;
  for (const TrackArgument& track : options.tracks) {
    if (!track.remoteId)
      files.emplace_back(track.text);
  }
  std::vector<OutputName> outputs;
  if (options.ReportsToStandardOutput())
    outputs.emplace_back("the report", "-");
  if (!options.contactSheet.empty())
    outputs.emplace_back("--contact-sheet", options.contactSheet);
  if (!options.y4mFile.empty())
    outputs.emplace_back("--y4m", options.y4mFile);
  CheckOutputs(files, outputs);
  for (const OutputName& output : outputs)
    files.push_back(output.second);
  if (!options.pngFolder.empty())
    CheckOutputFolder("--png", options.pngFolder, ".png", files);
  if (!options.jpegFolder.empty())
    CheckOutputFolder("--jpeg", options.jpegFolder, ".jpg", files);
}

}  // namespace

const CommandText kPlayText = {
    "play",
    "TRACK... [OPTION]...",
    "plays tracks and reports; what is done without a COMMAND",
    {"Plays motion-JPEG tracks of storage servers without a screen: fetches and decodes their "
     "pictures, writes them where that is asked for, and reports how fast that went.",
     "A TRACK is a motion-JPEG file (AVI or MOV), or track n of a storage server that runs "
     "elsewhere: ADDRESS:PORT:Tn or http://ADDRESS:PORT/tracks/n (an IPv6 address in brackets: "
     "[::1]:8080:T1). Several tracks play together.",
     "A TIME is seconds (62.5), minutes and seconds (1:02.5), hours, minutes, seconds and pictures "
     "(00:01:02:12) or a number of samples, which count from 0 (--start=#137). With a minus in "
     "front a start is counted back from the end (-2s, -#50).",
     "A sample is a frame, or the two fields of an interlaced frame; its field pictures are half "
     "as "
     "high as the frame. Samples asked for behind the end of a track count as missing. Damaged "
     "pictures that can be shown are written and counted under both \"pictures\" and "
     "\"damaged\", others under \"damaged\".",
     "In the report, \"link MB/s\" is what the server gave while it was asked, without the time in "
     "which enough samples were there; p50 and p99 are milliseconds from an order to its sample; "
     "\"pictures/s\" is over the track's own time, from its first order to its last sample. With "
     "-v "
     "it tells where the time went: asking, waiting for room, decoding, writing."},
    {{"moravel-play clip.avi", "plays a file and tells how fast that went"},
     {"moravel-play --size 640x360 --contact-sheet sheet.png a.avi b.mov",
      "shows pictures of two files, shrunk, on one sheet"},
     {"moravel-play --start 1:00 --duration 10 --order random 10.0.0.5:8080:T7",
      "plays ten seconds of a server's track 7 in random order"},
     {"moravel-play --start -2s --jpeg pictures clip.mov",
      "writes the pictures of the last two seconds as they are stored"},
     {"moravel-play --size 960x540 --y4m - clip.avi | ffplay -", "shows it on a screen"}},
    {{0, "all pictures are there"},
     {1, "some pictures are missing, damaged or (with --realtime) late"},
     {2, "wrong usage"},
     {3, "a storage server or a track could not be reached or read"},
     {4, "a picture or the report could not be written (full disk, unwritable folder)"},
     {130, "interrupted (the second interrupt stops at once)"}}};

std::variant<Options, std::string> ParseOptions(int argc, const char* const* argv) {
  Options options;
  options.jobs = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  RawOptions raw;
  CommandLine line(kPlayText);
  DeclareWhat(line, options, raw);
  DeclarePictures(line, options, raw);
  DeclareHow(line, options, raw);
  if (const auto text = line.Read(argc, argv))
    return *text;
  for (const std::string& text : raw.tracks)
    options.tracks.push_back(ParseTrackArgument(text));
  options.sizes = ParseSizes(raw.sizes);
  options.format = ChooseFormat(raw, options);
  if (!raw.start.empty())
    options.start = ParseTimeArgument("--start", raw.start);
  if (!raw.duration.empty())
    options.duration = ParseTimeArgument("--duration", raw.duration);
  options.waitingBytes = raw.memoryMib << 20;
  CheckTogether(options);
  CheckFiles(options);
  return options;
}

}  // namespace Moravel::Play
