#pragma once

#include "Options.h"

namespace Moravel::Play {

// Plays what the options ask for and reports. The elements are registered and CatchSignals has
// been called. Returns an ExitCode; problems have been told on standard error.
int Play(const Options& options);

}  // namespace Moravel::Play
