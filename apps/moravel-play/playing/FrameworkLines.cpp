#include "playing/FrameworkLines.h"

#include <utility>

namespace Moravel::Play {

namespace {

thread_local CapturedWarnings* capturing = nullptr;

}  // namespace

CapturedWarnings::CapturedWarnings() : outer_(std::exchange(capturing, this)) {}

CapturedWarnings::~CapturedWarnings() {
  capturing = outer_;
}

void FrameworkLines::WriteLog(qel::LogLevel level, const char* message, const char* context,
                              const char* file, const char* line, const char* reserved,
                              const char* threadId, const char* time) {
  if (level != qel::QEL_WARNING || capturing == nullptr)
    next_->WriteLog(level, message, context, file, line, reserved, threadId, time);
  else if (capturing->first_.empty())
    capturing->first_ = message;
}

}  // namespace Moravel::Play
