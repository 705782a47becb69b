#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "command/CommandPage.h"
#include "command/Size.h"
#include "command/TimeArgument.h"
#include "command/TrackArgument.h"
#include "command/UsageError.h"
#include "logging/ILogger.h"
#include "qel/FourCC.h"

namespace Moravel::Play {

enum class Order { Forward, Reverse, Random };

// What the user asked for; checked.
struct Options {
  std::vector<TrackArgument> tracks;
  std::vector<Size> sizes;  // largest first, each once; empty: the track's own
  qel::FourCC format = qel::FourCC_I420;

  TimeArgument start;
  std::optional<int64_t> count;  // samples; neither this nor the duration: to the end
  std::optional<TimeArgument> duration;
  Order order = Order::Forward;
  bool fields = false;  // both fields of interlaced material, else the top field only
  bool frames = false;  // or both, as one frame

  int jobs = 1;
  int window = 16;
  int64_t waitingBytes = int64_t{256} << 20;  // of samples, in all tracks
  int connections = 1;                        // to each server
  bool realtime = false;

  std::filesystem::path pngFolder;  // empty: none, like those below
  std::filesystem::path jpegFolder;
  std::filesystem::path contactSheet;
  std::filesystem::path y4mFile;  // "-": standard output
  bool json = false;
  bool quiet = false;
  orl::mv::logging::ILogger::Level logLevel = orl::mv::logging::ILogger::Level_Warning;

  // Samples may be wanted as they are stored, and nothing else.
  bool DecodesPictures() const {
    return jpegFolder.empty() || !(pngFolder.empty() && contactSheet.empty() && y4mFile.empty());
  }
  bool WritesPicturesToStandardOutput() const { return y4mFile == "-"; }
  bool ReportsToStandardOutput() const {
    return json || (!quiet && !WritesPicturesToStandardOutput());
  }
};

extern const CommandText kPlayText;

// The options, or the text that the user asked for instead of playing (help, version).
// Throws UsageError.
std::variant<Options, std::string> ParseOptions(int argc, const char* const* argv);

}  // namespace Moravel::Play
