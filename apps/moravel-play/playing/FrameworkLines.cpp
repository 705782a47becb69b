#include "playing/FrameworkLines.h"

#include <string_view>
#include <utility>

namespace Moravel::Play {

namespace {

thread_local CapturedWarnings* capturing = nullptr;

// The element names a stream, which is the same for all pictures of a track.
std::string WithoutStream(const std::string& warning) {
  constexpr std::string_view kDamaged = "is damaged: ";
  const size_t at = warning.find(kDamaged);
  return at == std::string::npos ? warning : warning.substr(at + kDamaged.size());
}

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
    capturing->first_ = WithoutStream(message);
}

}  // namespace Moravel::Play
