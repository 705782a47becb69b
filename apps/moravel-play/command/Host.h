#pragma once

#include <cstdint>

#include "logging/ILogger.h"

namespace Moravel::Play {

// Descriptors 0 to 2 that whoever started the program left closed are opened, so that no file of
// ours gets their number. Writing to them fails as before.
void OpenStandardDescriptors();

// What every command does first: signals, log lines of that level to standard error, elements.
// `beginningBytes` are asked for with the opening of a track, for its first pictures.
void StartHost(orl::mv::logging::ILogger::Level logLevel, int64_t beginningBytes = 0);

}  // namespace Moravel::Play
