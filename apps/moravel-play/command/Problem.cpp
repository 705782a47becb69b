#include "command/Problem.h"

#include <unistd.h>

#include <cstdio>
#include <new>

#include "command/Printable.h"

namespace Moravel::Play {

namespace {

// Erases what the progress bar may have left in the line.
constexpr const char* kEraseLine = "\033[K";

}  // namespace

void PrintProblem(const std::string& text) try {
  const std::string line = "moravel-play: " + Printable(text) + '\n';
  static const bool terminal = ::isatty(STDERR_FILENO) == 1;
  std::fputs(terminal ? (kEraseLine + line).c_str() : line.c_str(), stderr);
} catch (const std::bad_alloc&) {
  PrintOutOfMemory();
}

void PrintOutOfMemory() {
  std::fputs("moravel-play: out of memory\n", stderr);
}

}  // namespace Moravel::Play
