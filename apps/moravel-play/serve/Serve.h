#pragma once

namespace Moravel::Play {

// The command: reads the command line, then serves until it is interrupted. Returns an ExitCode.
// Throws UsageError.
int RunServe(int argc, const char* const* argv);

}  // namespace Moravel::Play
