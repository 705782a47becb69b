#include "sinks/OutputFile.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "command/Interrupt.h"

namespace Moravel::Play {

namespace {

constexpr mode_t kReadableByAll = 0666;
constexpr int kMillisecondsToLookAround = 50;
constexpr int kMillisecondsAfterInterrupt = 300;

bool IsPipe(int descriptor) {
  struct stat status = {};
  return ::fstat(descriptor, &status) == 0 && S_ISFIFO(status.st_mode);
}

// A pipe that others write to as well is opened anew: whether writing waits is told for an opening.
int OpenStandardOutput() {
  if (IsPipe(STDOUT_FILENO)) {
    const int descriptor = ::open("/proc/self/fd/1", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor >= 0)
      return descriptor;
  }
  return ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
}

int Open(const std::filesystem::path& path) {
  if (path == "-")
    return OpenStandardOutput();
  int descriptor = -1;
  do {
    descriptor =
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NONBLOCK, kReadableByAll);
    // A pipe of that name is opened when it has a reader.
  } while (descriptor < 0 && errno == ENXIO && std::filesystem::is_fifo(path) && !Interrupted() &&
           ::poll(nullptr, 0, kMillisecondsToLookAround) <= 0);
  return descriptor;
}

bool CanWait(int descriptor) {
  struct stat status = {};
  const bool isFile = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
  return !isFile && (::fcntl(descriptor, F_GETFL) & O_NONBLOCK) == 0;
}

int OpenNew(const std::filesystem::path& path) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  const int descriptor = ::open(path.c_str(), kFlags, kReadableByAll);
  if (descriptor >= 0 || errno != EEXIST || ::unlink(path.c_str()) != 0)
    return descriptor;
  return ::open(path.c_str(), kFlags, kReadableByAll);
}

}  // namespace

OutputFile::OutputFile(const std::filesystem::path& path, IfThere ifThere)
    : path_(path), descriptor_(ifThere == IfThere::Replace ? OpenNew(path) : Open(path)) {
  if (descriptor_ < 0)
    Fail();
  if (CanWait(descriptor_))
    mostAtOnce_ = PIPE_BUF;
}

OutputFile::~OutputFile() {
  if (descriptor_ >= 0)
    ::close(descriptor_);
}

void OutputFile::Write(std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    if (mostAtOnce_ != SIZE_MAX)
      AwaitReader();
    const ssize_t written = ::write(descriptor_, bytes.data(), std::min(bytes.size(), mostAtOnce_));
    if (written < 0 && errno == EAGAIN)
      AwaitReader();
    else if (written < 0 && errno != EINTR)
      Fail();
    if (written < 0)
      continue;
    bytes = bytes.subspan(static_cast<size_t>(written));
  }
}

void OutputFile::AwaitReader() const {
  int waited = 0;
  pollfd ready = {descriptor_, POLLOUT, 0};
  while (::poll(&ready, 1, kMillisecondsToLookAround) <= 0) {
    waited += Interrupted() ? kMillisecondsToLookAround : 0;
    if (waited > kMillisecondsAfterInterrupt)
      throw ClosedPipe(path_.string() + ": nobody reads it");
  }
}

void OutputFile::Close() {
  const int descriptor = descriptor_;
  descriptor_ = -1;
  if (::close(descriptor) != 0 && errno != EINTR)
    Fail();
}

void OutputFile::Fail() const {
  const int error = errno;
  const std::string name = path_ == "-" ? "standard output" : path_.string();
  const std::string text = name + ": cannot be written: " + std::generic_category().message(error);
  if (error == EPIPE || error == ENXIO)
    throw ClosedPipe(text);
  throw OutputError(text);
}

void WriteToStandardOutput(std::string_view text) {
  try {
    OutputFile output("-");
    output.Write({reinterpret_cast<const uint8_t*>(text.data()), text.size()});
    output.Close();
  } catch (const ClosedPipe&) {
    return;
  }
}

}  // namespace Moravel::Play
