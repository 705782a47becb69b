#pragma once

#include "command/Options.h"

namespace Moravel::Play {

// Plays what the options ask for and reports. StartHost has been called. Returns an ExitCode;
// problems have been told on standard error.
int Play(const Options& options);

// The command: reads the command line, then plays. Throws UsageError.
int RunPlay(int argc, const char* const* argv);

}  // namespace Moravel::Play
