#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <variant>
#include <vector>

#include "command/CommandPage.h"
#include "logging/ILogger.h"
#include "storage-server/StorageServer.h"

namespace Moravel::Play {

// What the user asked for; checked.
struct ServeOptions {
  std::vector<std::filesystem::path> paths;  // files and folders
  std::string address = "0.0.0.0";
  uint16_t port = 8080;
  Player::BadNetwork::Options network;
  bool quiet = false;
  orl::mv::logging::ILogger::Level logLevel = orl::mv::logging::ILogger::Level_Warning;
};

extern const CommandText kServeText;

// The options, or the text that the user asked for instead. Throws UsageError.
std::variant<ServeOptions, std::string> ParseServeOptions(int argc, const char* const* argv);

}  // namespace Moravel::Play
