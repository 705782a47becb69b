#pragma once

#include <memory>

#include "qel/Logging.h"

namespace Moravel::Play {

// Hands the framework's log lines on, and counts the warnings: the elements report a picture that
// they show in spite of damage as a warning line, in the thread that decodes it.
class FrameworkLines : public qel::ILoggerWriter {
 public:
  explicit FrameworkLines(std::shared_ptr<qel::ILoggerWriter> next) : next_(std::move(next)) {}

  static int64_t WarningsOfThisThread();

  void WriteLog(qel::LogLevel level, const char* message, const char* context, const char* file,
                const char* line, const char* reserved, const char* threadId,
                const char* time) override;

 private:
  const std::shared_ptr<qel::ILoggerWriter> next_;
};

}  // namespace Moravel::Play
