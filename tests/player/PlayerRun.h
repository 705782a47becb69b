#pragma once

#include <sys/types.h>

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

  std::string ReadLine();
  std::string ReadAll();
  void CloseOutput();
  void Signal(int signal) const;
  // The exit code once the program has ended, -1 before that.
  int TryWait();
  int Wait();

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
