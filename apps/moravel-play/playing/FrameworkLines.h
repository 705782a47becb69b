#pragma once

#include <memory>
#include <string>

#include "qel/Logging.h"

namespace Moravel::Play {

// Keeps the framework's warnings of this thread from the log while it lives: the elements report a
// picture that they show in spite of damage as a warning line, in the thread that decodes it, and
// cannot say which picture it is.
class CapturedWarnings {
 public:
  CapturedWarnings();
  ~CapturedWarnings();
  CapturedWarnings(const CapturedWarnings&) = delete;
  CapturedWarnings& operator=(const CapturedWarnings&) = delete;

  // What the first one says of the picture ("Premature end of JPEG file"); empty when there was
  // none.
  const std::string& First() const { return first_; }

 private:
  friend class FrameworkLines;

  std::string first_;
  CapturedWarnings* const outer_;
};

// Hands the framework's log lines on, but for the warnings that are captured.
class FrameworkLines : public qel::ILoggerWriter {
 public:
  explicit FrameworkLines(std::shared_ptr<qel::ILoggerWriter> next) : next_(std::move(next)) {}

  void WriteLog(qel::LogLevel level, const char* message, const char* context, const char* file,
                const char* line, const char* reserved, const char* threadId,
                const char* time) override;

 private:
  const std::shared_ptr<qel::ILoggerWriter> next_;
};

}  // namespace Moravel::Play
