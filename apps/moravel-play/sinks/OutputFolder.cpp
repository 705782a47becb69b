#include "sinks/OutputFolder.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "sinks/OutputFile.h"

namespace Moravel::Play {

void MakeOutputFolder(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (!error && ::access(folder.c_str(), W_OK | X_OK) != 0)
    error = std::error_code(errno, std::generic_category());
  if (error)
    throw OutputError(folder.string() + ": is no folder to write to: " + error.message());
}

std::string SixDigits(int64_t sampleNumber) {
  char number[32];
  std::snprintf(number, sizeof number, "%06lld", static_cast<long long>(sampleNumber));
  return number;
}

}  // namespace Moravel::Play
