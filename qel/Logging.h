#pragma once

#include <memory>
#include <string>

#include "qel/Export.h"

namespace qel {

// The numbers are the framework's, and say nothing of weight.
enum LogLevel { QEL_INFO = 0, QEL_WARNING = 1, QEL_ERROR = 2, QEL_DEBUG = 3, QEL_TRACE = 4 };

// Where framework log lines go. The writer decides which levels it keeps. It may be called from
// any thread, also from several at once; what it throws never reaches the code that logs.
class QEL_API ILoggerWriter {
 public:
  virtual ~ILoggerWriter() = default;

  // `reserved` is always empty. The texts are valid during the call only.
  virtual void WriteLog(LogLevel level, const char* message, const char* context, const char* file,
                        const char* line, const char* reserved, const char* threadId,
                        const char* time) = 0;
};

// The writer in force, empty when none is installed. Thread-safe.
QEL_API std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter();

// Texts that go with a line: wall-clock time, calling thread, what the thread is doing.
QEL_API std::string GetCurrentTimeString();
QEL_API std::string GetThreadId();
QEL_API std::string GetCurrentContextString();

QEL_API std::string ToString(int value);
QEL_API std::string ToString(LogLevel level);

}  // namespace qel
