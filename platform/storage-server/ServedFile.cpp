#include "storage-server/ServedFile.h"

#include <fcntl.h>
#include <sys/resource.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace Moravel::Player {

namespace {

// Descriptors that no file takes: for connections, for answers under way, and for the program.
constexpr rlim_t kSpareDescriptors = 64;

std::string TooManyFiles() {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  return "too many open files (this process may have " + std::to_string(limit.rlim_cur) +
         " descriptors: see ulimit -n)";
}

std::string WhyNot(int error) {
  switch (error) {
    case EMFILE:
      return TooManyFiles();
    case EINVAL:
      return "Not a regular file";
    default:
      return std::generic_category().message(error);
  }
}

bool IsSpare(int descriptor) {
  rlimit limit{};
  return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 &&
         static_cast<rlim_t>(descriptor) + kSpareDescriptors >= limit.rlim_cur;
}

// 0, or the error.
int Check(const Descriptor& file) {
  struct stat state {};
  if (!file || ::fstat(file.Get(), &state) != 0) {
    return errno;
  }
  if (!S_ISREG(state.st_mode)) {
    return S_ISDIR(state.st_mode) ? EISDIR : EINVAL;
  }
  return IsSpare(file.Get()) ? EMFILE : 0;
}

}  // namespace

std::string FileState::ETag() const {
  const auto number = [](auto value) { return std::to_string(value); };
  return '"' + number(state.st_ino) + '-' + number(state.st_size) + '-' +
         number(state.st_mtim.tv_sec) + '.' + number(state.st_mtim.tv_nsec) + '"';
}

// Non-blocking, for a pipe must not hold up the server before it is turned down.
ServedFile::ServedFile(const std::filesystem::path& path)
    : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {
  if (const int error = Check(descriptor_)) {
    throw std::runtime_error("cannot read " + path.string() + ": " + WhyNot(error));
  }
}

std::optional<FileState> ServedFile::Now() const {
  FileState now{.descriptor = Descriptor(::fcntl(descriptor_.Get(), F_DUPFD_CLOEXEC, 0))};
  if (!now.descriptor || ::fstat(now.descriptor.Get(), &now.state) != 0) {
    return std::nullopt;
  }
  return now;
}

}  // namespace Moravel::Player
