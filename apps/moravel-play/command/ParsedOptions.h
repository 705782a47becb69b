#pragma once

#include <string>
#include <variant>

#include "command/ExitCode.h"
#include "sinks/OutputFile.h"

namespace Moravel::Play {

// What the options of a command line come to: options, or a text that was asked for in place of a
// run, which is printed. The exit code; errors are OutputError.
template <typename Options, typename Function>
int RunParsed(const std::variant<Options, std::string>& parsed, Function run) {
  if (const auto* const text = std::get_if<std::string>(&parsed)) {
    WriteToStandardOutput(*text);
    return kExitFine;
  }
  return run(std::get<Options>(parsed));
}

}  // namespace Moravel::Play
