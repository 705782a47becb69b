#pragma once

#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "support/TempFolder.h"

namespace Moravel::Test {

// One run of the player program, its standard output at a pipe.
class PlayerRun {
 public:
  explicit PlayerRun(std::vector<std::string> arguments);
  ~PlayerRun();
  PlayerRun(const PlayerRun&) = delete;
  PlayerRun& operator=(const PlayerRun&) = delete;

  // What it writes, to the end or so many bytes.
  std::string Read(size_t most = SIZE_MAX);
  void CloseOutput();
  void Signal(int signal) const;
  // The exit code; with WNOHANG, -1 before the program has ended.
  int Wait(int options = 0);

  // After the end.
  std::string Errors() const;

 private:
  TempFolder folder_;
  pid_t process_ = -1;
  int output_ = -1;
  int exitCode_ = -1;
};

// The whole of a run.
struct RunResult {
  int exitCode;
  std::string output;
  std::string errors;
};
RunResult Play(std::vector<std::string> arguments);

}  // namespace Moravel::Test
