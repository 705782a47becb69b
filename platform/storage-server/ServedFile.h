#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "storage-server/Descriptor.h"

namespace Moravel::Player {

// A file as it was at one moment, with a descriptor of its own.
struct FileState {
  Descriptor descriptor;
  struct stat state {};

  uint64_t Size() const { return static_cast<uint64_t>(state.st_size); }
  time_t ModifiedAt() const { return state.st_mtim.tv_sec; }
  // A strong validator of HTTP, in quotes: another one as soon as the file was written to.
  std::string ETag() const;
};

// A regular file, open from its construction on: whatever its path names later, this very file is
// read. Any thread may use it.
class ServedFile {
 public:
  // Throws std::runtime_error, which names the path and the reason, also when so few descriptors
  // would be left that clients could not be served.
  explicit ServedFile(const std::filesystem::path& path);

  // Empty when it cannot be had now, as all descriptors of the process are taken.
  std::optional<FileState> Now() const;

 private:
  Descriptor descriptor_;
};

}  // namespace Moravel::Player
