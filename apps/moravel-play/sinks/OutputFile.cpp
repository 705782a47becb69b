#include "sinks/OutputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Moravel::Play {

namespace {

constexpr mode_t kReadableByAll = 0666;

int Open(const std::filesystem::path& path) {
  if (path == "-")
    return ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
  return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kReadableByAll);
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
}

OutputFile::~OutputFile() {
  if (descriptor_ >= 0)
    ::close(descriptor_);
}

void OutputFile::Write(std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR)
      continue;
    if (written < 0)
      Fail();
    bytes = bytes.subspan(static_cast<size_t>(written));
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
  if (error == EPIPE)
    throw ClosedPipe(text);
  throw OutputError(text);
}

}  // namespace Moravel::Play
