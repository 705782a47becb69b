#include "playing/FrameworkLines.h"

namespace Moravel::Play {

namespace {

thread_local int64_t warnings = 0;

}  // namespace

int64_t FrameworkLines::WarningsOfThisThread() {
  return warnings;
}

void FrameworkLines::WriteLog(qel::LogLevel level, const char* message, const char* context,
                              const char* file, const char* line, const char* reserved,
                              const char* threadId, const char* time) {
  if (level == qel::QEL_WARNING)
    ++warnings;
  next_->WriteLog(level, message, context, file, line, reserved, threadId, time);
}

}  // namespace Moravel::Play
