#include <cstdio>
#include <string_view>

#include "command/ExitCode.h"
#include "command/Options.h"
#include "command/Problem.h"
#include "playing/Play.h"

namespace {

using namespace Moravel::Play;

// What the first word of the command line can be; without one of these, tracks are played.
struct Command {
  std::string_view name;
  int (*run)(int argc, const char* const* argv);  // argv[0] is the command's name
};
constexpr Command kCommands[] = {{"play", &RunPlay}};

int Run(int argc, const char* const* argv) {
  for (const Command& command : kCommands) {
    if (argc > 1 && argv[1] == command.name)
      return command.run(argc - 1, argv + 1);
  }
  return RunPlay(argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const UsageError& error) {
    PrintProblem(error.what());
    return kExitUsage;
  } catch (const std::exception& error) {
    PrintProblem(error.what());
    return kExitUnreadable;
  }
}
