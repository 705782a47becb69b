#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <stdexcept>
#include <string_view>

namespace Moravel::Play {

// Something could not be written: the file and the reason, in one line.
class OutputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The reader of a pipe has gone.
class ClosedPipe : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A file being written from its beginning, or standard output ("-"). Used by one thread at a time.
// Errors are OutputError and ClosedPipe. Waiting for the reader of a pipe ends soon after an
// interrupt (command/Interrupt.h), with ClosedPipe.
class OutputFile {
 public:
  // What is done with a file of that name: it gets other contents, or gives its name to a new file,
  // so that nothing is written through a link.
  enum class IfThere { Overwrite, Replace };

  explicit OutputFile(const std::filesystem::path& path, IfThere ifThere = IfThere::Overwrite);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  void Write(std::span<const uint8_t> bytes);
  // Errors that the system tells only when a file is closed come here.
  void Close();

 private:
  [[noreturn]] void Fail() const;
  void AwaitReader() const;

  const std::filesystem::path path_;
  int descriptor_;
  size_t mostAtOnce_ = SIZE_MAX;  // what a write takes without waiting, once there is room
};

// All of it, at once. Nobody minds a reader that has gone.
void WriteToStandardOutput(std::string_view text);

}  // namespace Moravel::Play
