#include <unistd.h>

#include <chrono>
#include <ctime>
#include <mutex>
#include <utility>
#include <vector>

#include "qel/Milestone.h"
#include "qelCore/LoggerWriter.h"

namespace qel {

namespace {

// The writer of the process: log statements everywhere look it up anew for each line.
struct CurrentWriter {
  static CurrentWriter& Instance() {
    static CurrentWriter current;
    return current;
  }

  std::mutex writerAccess_;  // guards writer_
  std::shared_ptr<ILoggerWriter> writer_;
};

// What the thread is doing: the descriptions of its milestones, outermost first.
thread_local std::vector<std::string> milestones;

class Milestone : public IMilestone {
 public:
  explicit Milestone(std::string description) { milestones.push_back(std::move(description)); }
  ~Milestone() override { milestones.pop_back(); }
};

}  // namespace

void SetCurrentLoggerWriter(std::shared_ptr<ILoggerWriter> writer) {
  CurrentWriter& current = CurrentWriter::Instance();
  const std::lock_guard<std::mutex> lock(current.writerAccess_);
  current.writer_.swap(writer);
}

std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter() {
  CurrentWriter& current = CurrentWriter::Instance();
  const std::lock_guard<std::mutex> lock(current.writerAccess_);
  return current.writer_;
}

MilestonePtr CreateMilestone(std::string description) {
  return std::make_unique<Milestone>(std::move(description));
}

std::string GetCurrentContextString() {
  std::string context;
  for (const std::string& milestone : milestones)
    context += (context.empty() ? "" : " > ") + milestone;
  return context;
}

std::string GetThreadId() {
  return std::to_string(gettid());
}

std::string GetCurrentTimeString() {
  using std::chrono::system_clock;
  const auto now = system_clock::now();
  const std::time_t seconds = system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm local = {};
  localtime_r(&seconds, &local);
  char text[32];
  const size_t length = std::strftime(text, sizeof text, "%F %T", &local);
  const std::string fraction = std::to_string(1000 + milliseconds).substr(1);
  return std::string(text, length) + "." + fraction;
}

std::string ToString(int value) {
  return std::to_string(value);
}

std::string ToString(LogLevel level) {
  switch (level) {
    case QEL_INFO:
      return "INFO";
    case QEL_WARNING:
      return "WARNING";
    case QEL_ERROR:
      return "ERROR";
    case QEL_DEBUG:
      return "DEBUG";
    case QEL_TRACE:
      return "TRACE";
  }
  return "LogLevel(" + std::to_string(level) + ")";
}

}  // namespace qel
