#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/Files.h"
#include "support/TempFolder.h"

namespace Moravel::Test {

// One run of the player program, its standard output at a pipe.
class PlayerRun {
 public:
  explicit PlayerRun(const std::vector<std::string>& arguments) {
    static const std::string program =
        std::filesystem::read_symlink("/proc/self/exe").parent_path() / MORAVEL_PLAY_PROGRAM;
    std::vector<char*> argv = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments)
      argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    int ends[2] = {-1, -1};
    const int errors = ::open(errors_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (::pipe2(ends, O_CLOEXEC) == 0 && (process_ = ::fork()) == 0) {
      ::dup2(ends[1], STDOUT_FILENO);
      ::dup2(errors, STDERR_FILENO);
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    ::close(ends[1]);
    ::close(errors);
    output_ = ends[0];
  }
  ~PlayerRun() {
    CloseOutput();
    Signal(SIGKILL);
    Wait();
  }
  PlayerRun(const PlayerRun&) = delete;
  PlayerRun& operator=(const PlayerRun&) = delete;

  // What it writes, to the end or so many bytes.
  std::string Read(size_t most = SIZE_MAX) {
    std::string all;
    char part[65536];
    ssize_t length = 0;
    while (all.size() < most &&
           (length = ::read(output_, part, std::min(sizeof part, most - all.size()))) > 0)
      all.append(part, static_cast<size_t>(length));
    return all;
  }
  void CloseOutput() { ::close(std::exchange(output_, -1)); }
  void Signal(int signal) const {
    if (exitCode_ < 0)
      ::kill(process_, signal);
  }
  // The exit code; with WNOHANG, -1 before the program has ended.
  int Wait(int options = 0) {
    int status = 0;
    if (exitCode_ < 0 && ::waitpid(process_, &status, options) == process_)
      exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    return exitCode_;
  }
  // After the end.
  std::string Errors() const { return ReadFile<std::string>(errors_); }

 private:
  TempFolder folder_;
  const std::string errors_ = folder_ / "errors";
  pid_t process_ = -1;
  int output_ = -1;
  int exitCode_ = -1;
};

}  // namespace Moravel::Test
