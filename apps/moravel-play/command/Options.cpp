#include "command/Options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <map>
#include <regex>
#include <thread>

#include "elements/mjpeg/JpegPicture.h"

namespace Moravel::Play {

namespace {

using orl::mv::logging::ILogger;

constexpr double kMaxSeconds = 1e9;
constexpr int64_t kMaxCount = 1'000'000'000'000;

const std::map<std::string, Order> kOrders = {
    {"forward", Order::Forward}, {"reverse", Order::Reverse}, {"random", Order::Random}};

const std::map<std::string, ILogger::Level> kLogLevels = {
    {"trace", ILogger::Level_Trace}, {"debug", ILogger::Level_Debug},
    {"info", ILogger::Level_Info},   {"warning", ILogger::Level_Warning},
    {"error", ILogger::Level_Error}, {"none", ILogger::Level_NoLog}};

const std::map<std::string, qel::FourCC> kFormats = {
    {"Y800", qel::FourCC_Y800}, {"YUYV", qel::FourCC_YUYV}, {"YVYU", qel::FourCC_YVYU},
    {"UYVY", qel::FourCC_UYVY}, {"YV12", qel::FourCC_YV12}, {"YV16", qel::FourCC_YV16},
    {"I420", qel::FourCC_I420}, {"I422", qel::FourCC_I422}, {"BGR3", qel::FourCC_BGR3},
    {"BGRA", qel::FourCC_BGRA}, {"RGB3", qel::FourCC_RGB3}, {"RGBA", qel::FourCC_RGBA}};

const char* const kFooter = R"(
TRACK is a motion-JPEG file (AVI or MOV), or ADDRESS:PORT:Tn for track n of a storage server that
runs elsewhere (an IPv6 address in brackets: [::1]:8080:T1). Several tracks play together.

A sample is a frame, or the two fields of an interlaced frame; its field pictures are half as high
as the frame. Samples asked for behind the end of a track count as missing. Damaged pictures that
can be shown are written and counted under both "pictures" and "damaged", others under "damaged".

Exit code: 0 all fine; 1 some pictures missing or damaged; 2 wrong usage; 3 a storage server or a
track could not be reached or read; 4 a picture could not be written (full disk, unwritable
folder); 130 interrupted (the second interrupt stops at once).)";

// Values that go through a check of their own after parsing.
struct RawOptions {
  std::vector<std::string> tracks;
  std::vector<std::string> sizes;
  std::string format;
  std::string order = "forward";
  std::string logLevel = "warning";
};

template <typename Map>
std::string Keys(const Map& map) {
  std::string keys;
  for (const auto& [key, value] : map)
    keys += (keys.empty() ? "" : ", ") + key;
  return keys;
}

template <typename Value>
Value Choose(const std::map<std::string, Value>& choices, const char* option,
             const std::string& name) {
  const auto entry = choices.find(name);
  if (entry == choices.end())
    throw UsageError(std::string(option) + " " + name + ": must be one of " + Keys(choices));
  return entry->second;
}

Size ParseSize(const std::string& text) {
  static const std::regex form(R"((\d{1,5})x(\d{1,5}))");
  std::smatch match;
  Size size;
  if (std::regex_match(text, match, form))
    size = {std::stoi(match[1]), std::stoi(match[2])};
  if (!qel::mjpeg::IsWithinLimits(size.width, size.height)) {
    throw UsageError("--size " + text + ": must be WIDTHxHEIGHT, each from 1 to " +
                     std::to_string(qel::mjpeg::kMaxPictureSide) + " and at most " +
                     std::to_string(qel::mjpeg::kMaxPicturePixels) + " pixels, as in 640x360");
  }
  return size;
}

// Largest first: the elements can then take the smaller ones from the same decode.
std::vector<Size> ParseSizes(const std::vector<std::string>& texts) {
  std::vector<Size> sizes;
  for (const std::string& text : texts) {
    const Size size = ParseSize(text);
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

void Declare(CLI::App& app, Options& options, RawOptions& raw) {
  app.add_option("TRACK", raw.tracks, "File or ADDRESS:PORT:Tn")->required()->type_name("");
  app.add_option("--size", raw.sizes,
                 "Picture size, repeatable (default: the track's own; of a field as coded)")
      ->allow_extra_args(false)
      ->type_name("WxH");
  app.add_option(
         "--format", raw.format,
         "Pixel format (I420; BGRA, which keeps all colour, for PNG alone): " + Keys(kFormats))
      ->type_name("FOURCC");
  app.add_option("--start", options.startSeconds, "Start time (0)")
      ->check(Within(0.0, kMaxSeconds))
      ->type_name("SECONDS");
  auto* const count = app.add_option("--count", options.count, "Samples to play of each track")
                          ->check(Within(int64_t(1), kMaxCount))
                          ->type_name("N");
  app.add_option("--duration", options.durationSeconds, "Time to play of each track")
      ->check(Within(0.0, kMaxSeconds))
      ->excludes(count)
      ->type_name("SECONDS");
  app.add_option("--order", raw.order, "forward, reverse or random (forward)")->type_name("ORDER");
  app.add_flag("--fields", options.fields,
               "Both fields of interlaced material (default: the top field)");
  app.add_option("--jobs", options.jobs, "Decode workers, 1 to 256 (default: the cores)")
      ->check(Within(1, 256))
      ->type_name("N");
  app.add_option("--window", options.window,
                 "Samples of each track preloaded ahead, 1 to 4096 (16)")
      ->check(Within(1, 4096))
      ->type_name("N");
  app.add_option("--png", options.pngFolder, "Write each picture into this folder")
      ->type_name("DIR");
  app.add_option("--contact-sheet", options.contactSheet, "Write an overview as a PNG file")
      ->type_name("FILE");
  app.add_option("--y4m", options.y4mFile,
                 "Write raw video, - for standard output (one track, one size, I420)")
      ->type_name("FILE");
  app.add_flag("--json", options.json, "Report as one JSON object on standard output");
  app.add_option("--log-level", raw.logLevel,
                 "trace, debug, info, warning, error or none (warning)")
      ->type_name("LEVEL");
  app.add_flag("--quiet", options.quiet, "No progress bar, no report");
  app.set_version_flag("--version", "moravel-play " MORAVEL_PLAY_VERSION);
  app.footer(kFooter);
}

// PNG files hold RGB: made from the decoder's RGB, they keep the colour that I420 halves.
qel::FourCC ChooseFormat(const RawOptions& raw, const Options& options) {
  if (!raw.format.empty())
    return Choose(kFormats, "--format", raw.format);
  const bool onlyPng =
      options.y4mFile.empty() && !(options.pngFolder.empty() && options.contactSheet.empty());
  return onlyPng ? qel::FourCC_BGRA : qel::FourCC_I420;
}

// The ranges let pass what is not a number at all.
void CheckSeconds(double seconds, const char* option) {
  if (std::isnan(seconds))
    throw UsageError(std::string(option) + ": must be a number of seconds");
}

void CheckTogether(const Options& options) {
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

}  // namespace

std::variant<Options, std::string> ParseOptions(int argc, const char* const* argv) {
  Options options;
  options.jobs = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  RawOptions raw;
  CLI::App app("Plays motion-JPEG tracks of storage servers without a screen.", "moravel-play");
  Declare(app, options, raw);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    return app.help();
  } catch (const CLI::CallForVersion& version) {
    return std::string(version.what()) + "\n";
  } catch (const CLI::ParseError& error) {
    throw UsageError(std::string(error.what()) + " (see moravel-play --help)");
  }
  for (const std::string& text : raw.tracks)
    options.tracks.push_back(ParseTrackArgument(text));
  options.sizes = ParseSizes(raw.sizes);
  options.format = ChooseFormat(raw, options);
  options.order = Choose(kOrders, "--order", raw.order);
  options.logLevel = Choose(kLogLevels, "--log-level", raw.logLevel);
  CheckSeconds(options.startSeconds, "--start");
  CheckSeconds(options.durationSeconds.value_or(0), "--duration");
  CheckTogether(options);
  return options;
}

}  // namespace Moravel::Play
