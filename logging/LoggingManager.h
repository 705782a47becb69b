#pragma once

#include <string>

#include "logging/ILogger.h"
#include "qel/Export.h"

namespace orl::mv::logging {

// Where the host's loggers come from. Thread-safe. The library asks for "QELPreloader",
// "QELSampleDecoder" and "QELMultiResDecoder".
class QEL_API LoggingManager {
 public:
  // The logger of that name, made on first use.
  static ILogger& GetLogger(const std::string& name);
  // The same, or null when the host keeps no log.
  static ILogger* GetLoggerPtr(const std::string& name);
};

}  // namespace orl::mv::logging
