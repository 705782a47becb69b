#pragma once

#include <cstddef>
#include <string>

#include "qel/Export.h"

namespace orl::mv::logging {

// A named logger of the host. Loggers live as long as the process; any thread may use them.
class QEL_API ILogger {
 public:
  enum Level {
    Level_Trace = 10,
    Level_Debug = 20,
    Level_Info = 30,
    Level_Warning = 40,
    Level_Error = 50,
    Level_Fatal = 60,
    Level_NoLog = 100
  };

  virtual ~ILogger() = default;

  // Messages below this level are not wanted: do not even make their texts.
  virtual Level GetLevel() const = 0;
  // One line, in UTF-8 and without its end. `file` and `line` are where it was written; the texts
  // are valid during the call only.
  virtual void Log(Level level, const std::string& text, const char* file, size_t line) const = 0;
};

}  // namespace orl::mv::logging
