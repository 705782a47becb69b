#pragma once

#include <sstream>

#include "logging/ILogger.h"
#include "qel/SourceFile.h"

// Writes a line to a host logger (a pointer, may be null). The text is made only when the logger
// wants the level.
#define PLAYER_LOG(logger, level, streamed)                                               \
  do {                                                                                    \
    if ((logger) != nullptr && (logger)->GetLevel() <= (level)) {                         \
      (logger)->Log((level), (::std::ostringstream() << streamed).str(), QEL_SOURCE_FILE, \
                    __LINE__);                                                            \
    }                                                                                     \
  } while (false)
