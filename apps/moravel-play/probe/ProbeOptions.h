#pragma once

#include <string>
#include <variant>
#include <vector>

#include "command/CommandPage.h"
#include "command/TrackArgument.h"
#include "logging/ILogger.h"

namespace Moravel::Play {

// What the user asked for; checked.
struct ProbeOptions {
  std::vector<TrackArgument> tracks;
  bool scan = false;
  int jobs = 1;
  bool json = false;
  bool quiet = false;
  orl::mv::logging::ILogger::Level logLevel = orl::mv::logging::ILogger::Level_Warning;
};

extern const CommandText kProbeText;

// The options, or the text that the user asked for instead. Throws UsageError.
std::variant<ProbeOptions, std::string> ParseProbeOptions(int argc, const char* const* argv);

}  // namespace Moravel::Play
