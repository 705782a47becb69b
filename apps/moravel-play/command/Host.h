#pragma once

#include "logging/ILogger.h"

namespace Moravel::Play {

// What every command does first: signals, log lines of that level to standard error, elements.
void StartHost(orl::mv::logging::ILogger::Level logLevel);

}  // namespace Moravel::Play
