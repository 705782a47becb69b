#pragma once

#include <memory>

#include "logging/ILogger.h"
#include "qel/Export.h"
#include "qel/Logging.h"

namespace orl::mv::logging {

// The level of all loggers of the process, made or yet to be made (Level_Warning at first).
QEL_API void SetLogLevel(ILogger::Level level);

// A framework log writer that hands framework lines to the host's logger "qel".
QEL_API std::shared_ptr<qel::ILoggerWriter> CreateFrameworkLogWriter();

}  // namespace orl::mv::logging
