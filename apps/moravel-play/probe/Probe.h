#pragma once

namespace Moravel::Play {

// The command: reads the command line, looks at the tracks, tells what it found. Returns an
// ExitCode. Throws UsageError.
int RunProbe(int argc, const char* const* argv);

}  // namespace Moravel::Play
