#include "command/Problem.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string_view>

#include "command/ExitCode.h"
#include "qelCore/Printable.h"

namespace Moravel::Play {

namespace {

// Erases what the progress bar may have left in the line.
constexpr std::string_view kEraseLine = "\033[K";

// What is quoted in a message may be of any length: its beginning and its end tell enough.
std::string Shortened(const std::string& text) {
  constexpr size_t kMost = 2000;
  constexpr size_t kEnd = 500;
  if (text.size() <= kMost)
    return text;
  return text.substr(0, kMost - kEnd) + " [...] " + text.substr(text.size() - kEnd);
}

std::atomic_flag isEnding;  // for want of memory

// Another thread ends the program.
[[noreturn]] void WaitForTheEnd() {
  while (true)
    ::pause();
}

}  // namespace

void PrintProblem(const std::string& text) {
  if (isEnding.test())
    WaitForTheEnd();  // what is told now comes of the want of memory
  const std::string line = "moravel-play: " + qel::Printable(Shortened(text)) + '\n';
  static const bool terminal = ::isatty(STDERR_FILENO) == 1;
  std::fputs(terminal ? (std::string(kEraseLine) + line).c_str() : line.c_str(), stderr);
}

void EndOutOfMemory() noexcept {
  if (isEnding.test_and_set())
    WaitForTheEnd();
  const bool terminal = ::isatty(STDERR_FILENO) == 1;
  constexpr std::string_view kLine = "\033[Kmoravel-play: out of memory\n";
  const std::string_view line = terminal ? kLine : kLine.substr(kEraseLine.size());
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
  ::_exit(kExitUnreadable);
}

}  // namespace Moravel::Play
