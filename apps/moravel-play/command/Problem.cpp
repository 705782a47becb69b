#include "command/Problem.h"

#include <unistd.h>

#include <cstdio>

namespace Moravel::Play {

namespace {

// Erases what the progress bar may have left in the line.
constexpr const char* kEraseLine = "\033[K";

}  // namespace

void PrintProblem(const std::string& text) {
  std::string line = "moravel-play: " + text;
  for (char& c : line) {
    if (static_cast<unsigned char>(c) < ' ' || c == '\x7f')
      c = ' ';
  }
  line += '\n';
  static const bool terminal = ::isatty(STDERR_FILENO) == 1;
  std::fputs(terminal ? (kEraseLine + line).c_str() : line.c_str(), stderr);
}

}  // namespace Moravel::Play
