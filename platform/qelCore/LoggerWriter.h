#pragma once

#include <memory>

#include "qel/Export.h"
#include "qel/Logging.h"

namespace qel {

// Installs the writer for all log statements from now on; an empty handle removes it. Thread-safe.
QEL_API void SetCurrentLoggerWriter(std::shared_ptr<ILoggerWriter> writer);

}  // namespace qel
