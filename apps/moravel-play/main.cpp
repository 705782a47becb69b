#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "command/CommandPage.h"
#include "command/ExitCode.h"
#include "command/Host.h"
#include "command/Options.h"
#include "command/Problem.h"
#include "playing/Play.h"
#include "probe/Probe.h"
#include "probe/ProbeOptions.h"
#include "serve/Serve.h"
#include "serve/ServeOptions.h"
#include "sinks/OutputFile.h"
#include "view/View.h"

namespace {

using namespace Moravel::Play;

// What the first word of the command line can be; without one of these, tracks are played.
struct Command {
  const CommandText& text;
  int (*run)(int argc, const char* const* argv);  // argv[0] is the command's name

  // Asks the command for a part of a page instead of running it.
  void Print(const char* option) const {
    const char* const arguments[] = {text.name, option};
    run(2, arguments);
  }
};
const Command kCommands[] = {
    {kPlayText, &RunPlay}, {kProbeText, &RunProbe}, {kServeText, &RunServe}, {kViewText, &RunView}};
const Command& kDefaultCommand = kCommands[0];

const Command* FindCommand(std::string_view name) {
  for (const Command& command : kCommands) {
    if (name == command.text.name)
      return &command;
  }
  return nullptr;
}

int Help(const char* name) {
  const Command* const command = FindCommand(name == nullptr ? kDefaultCommand.text.name : name);
  if (command == nullptr)
    throw UsageError(std::string(name) + ": there is no such command (see moravel-play --help)");
  if (name == nullptr) {
    std::string head = "Usage: moravel-play [COMMAND] ARGUMENT...\n\nCommands:\n";
    for (const Command& each : kCommands)
      head += ToHelpLine(each.text);
    WriteToStandardOutput(head +
                          "  help    tells all about one of them: moravel-play help COMMAND\n\n");
  }
  command->Print("--help");
  return kExitFine;
}

// For the build, which installs what comes of it: a page with a part from each command.
int PrintPage(std::string (*head)(const std::vector<const CommandText*>&), const char* part,
              std::string (*foot)()) {
  std::vector<const CommandText*> texts;
  for (const Command& command : kCommands)
    texts.push_back(&command.text);
  WriteToStandardOutput(head(texts));
  for (const Command& command : kCommands)
    command.Print(part);
  WriteToStandardOutput(foot());
  return kExitFine;
}

int Run(int argc, const char* const* argv) {
  const std::string_view word = argc > 1 ? argv[1] : "";
  if (const Command* const command = FindCommand(word))
    return command->run(argc - 1, argv + 1);
  if (word == "help" && argc <= 3)
    return Help(argc == 3 ? argv[2] : nullptr);
  if (argc == 2 && (word == "--help" || word == "-h"))
    return Help(nullptr);
  if (argc == 2 && word == "--man-page")
    return PrintPage(&ManPageHead, "--man-section", &ManPageFoot);
  if (argc == 2 && word == "--bash-completion")
    return PrintPage(&BashCompletionHead, "--bash-completion-part", &BashCompletionFoot);
  return kDefaultCommand.run(argc, argv);
}

}  // namespace

int main(int argc, char** argv) {
  OpenStandardDescriptors();
  std::set_new_handler(&EndOutOfMemory);
  try {
    return Run(argc, argv);
  } catch (const UsageError& error) {
    PrintProblem(error.what());
    return kExitUsage;
  } catch (const OutputError& error) {
    PrintProblem(error.what());
    return kExitUnwritable;
  } catch (const std::bad_alloc&) {  // of a size that cannot be
    EndOutOfMemory();
  } catch (const std::system_error& error) {
    const bool isThread = error.code() == std::errc::resource_unavailable_try_again;
    PrintProblem((isThread ? "cannot start a thread: " : "") + std::string(error.what()));
    return kExitUnreadable;
  } catch (const std::exception& error) {
    PrintProblem(error.what());
    return kExitUnreadable;
  }
}
