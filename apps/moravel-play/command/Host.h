#pragma once

#include "logging/ILogger.h"

namespace Moravel::Play {

// Descriptors 0 to 2 that whoever started the program left closed are opened, so that no file of
// ours gets their number. Writing to them fails as before.
void OpenStandardDescriptors();

// What every command does first: signals, log lines of that level to standard error, elements.
void StartHost(orl::mv::logging::ILogger::Level logLevel);

}  // namespace Moravel::Play
