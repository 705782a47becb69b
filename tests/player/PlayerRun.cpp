#include "PlayerRun.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <system_error>

namespace Moravel::Test {

PlayerRun::PlayerRun(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), MORAVEL_PLAY_PROGRAM);
  std::vector<char*> argv;
  for (std::string& argument : arguments)
    argv.push_back(argument.data());
  argv.push_back(nullptr);

  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0)
    throw std::system_error(errno, std::generic_category(), "pipe");
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, (folder_ / "errors").c_str(),
                                     O_WRONLY | O_CREAT, 0600);
  const int error = ::posix_spawn(&process_, argv.front(), &actions, nullptr, argv.data(), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  output_ = ends[0];
  if (error != 0)
    throw std::system_error(error, std::generic_category(), argv.front());
}

PlayerRun::~PlayerRun() {
  CloseOutput();
  if (exitCode_ < 0) {
    ::kill(process_, SIGKILL);
    Wait();
  }
}

std::string PlayerRun::Read(size_t most) {
  std::string all;
  char part[65536];
  for (ssize_t length = 0;
       all.size() < most &&
       (length = ::read(output_, part, std::min(sizeof part, most - all.size()))) > 0;)
    all.append(part, static_cast<size_t>(length));
  return all;
}

void PlayerRun::CloseOutput() {
  if (output_ >= 0)
    ::close(output_);
  output_ = -1;
}

void PlayerRun::Signal(int signal) const {
  ::kill(process_, signal);
}

int PlayerRun::Wait(int options) {
  int status = 0;
  if (exitCode_ < 0 && ::waitpid(process_, &status, options) == process_)
    exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
  return exitCode_;
}

std::string PlayerRun::Errors() const {
  std::ifstream file(folder_ / "errors");
  return {std::istreambuf_iterator<char>(file), {}};
}

RunResult Play(std::vector<std::string> arguments) {
  PlayerRun run(std::move(arguments));
  std::string output = run.Read();
  const int exitCode = run.Wait();
  return {exitCode, std::move(output), run.Errors()};
}

}  // namespace Moravel::Test
