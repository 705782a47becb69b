#pragma once

namespace Moravel::Play {

// From now on the first interrupt or termination signal is noted, and the second one ends the
// process at once. Writing to a closed pipe is an error like others, not a signal.
void CatchSignals();

// Whether the first signal has come.
bool Interrupted();

}  // namespace Moravel::Play
