#pragma once

#include "logging/ILogger.h"
#include "qel/SourceLocation.h"
#include "qel/Text.h"

namespace Moravel::Player {

// Whether a host logger (may be null) takes messages of a level.
inline bool Takes(const orl::mv::logging::ILogger* logger, orl::mv::logging::ILogger::Level level) {
  return logger != nullptr && logger->GetLevel() <= level;
}

}  // namespace Moravel::Player

// Writes a line to a host logger (a pointer, may be null). The text is made only when the logger
// takes the level.
#define PLAYER_LOG(logger, level, streamed)                                                   \
  do {                                                                                        \
    if (::Moravel::Player::Takes((logger), (level)))                                          \
      (logger)->Log((level), QEL_TEXT(streamed), ::qel::ShortSourceFile(__FILE__), __LINE__); \
  } while (false)
