#include <cstdio>

#include "ExitCode.h"
#include "FrameworkLines.h"
#include "Interrupt.h"
#include "Options.h"
#include "Play.h"
#include "Problem.h"
#include "elements/BuiltinElements.h"
#include "host/HostLogging.h"
#include "qelCore/LoggerWriter.h"

namespace {

using namespace Moravel::Play;

void StartHost(const Options& options) {
  CatchSignals();
  orl::mv::logging::SetLogLevel(options.logLevel);
  qel::SetCurrentLoggerWriter(
      std::make_shared<FrameworkLines>(orl::mv::logging::CreateFrameworkLogWriter()));
  qel::RegisterBuiltinElements();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const auto parsed = ParseOptions(argc, argv);
    if (const auto* const text = std::get_if<std::string>(&parsed)) {
      std::fputs(text->c_str(), stdout);
      return kExitFine;
    }
    const Options& options = std::get<Options>(parsed);
    StartHost(options);
    return Play(options);
  } catch (const UsageError& error) {
    PrintProblem(error.what());
    return kExitUsage;
  } catch (const std::exception& error) {
    PrintProblem(error.what());
    return kExitUnreadable;
  }
}
