#include "host/HostLogging.h"

#include <spdlog/sinks/stdout_color_sinks.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>

#include "logging/LoggingManager.h"
#include "qelCore/Printable.h"

namespace orl::mv::logging {

namespace {

// Set once by the host's main program, read by every statement.
std::atomic<ILogger::Level> currentLevel = ILogger::Level_Warning;

spdlog::level::level_enum ToSpdlog(ILogger::Level level) {
  switch (level) {
    case ILogger::Level_Trace:
      return spdlog::level::trace;
    case ILogger::Level_Debug:
      return spdlog::level::debug;
    case ILogger::Level_Info:
      return spdlog::level::info;
    case ILogger::Level_Warning:
      return spdlog::level::warn;
    case ILogger::Level_Error:
      return spdlog::level::err;
    case ILogger::Level_Fatal:
      return spdlog::level::critical;
    case ILogger::Level_NoLog:
      break;
  }
  return spdlog::level::off;
}

// Users who want none say so to all programs in this way (no-color.org).
spdlog::color_mode Colours() {
  const char* const noColour = std::getenv("NO_COLOR");
  const bool isWanted = noColour == nullptr || *noColour == '\0';
  return isWanted ? spdlog::color_mode::automatic : spdlog::color_mode::never;
}

// Lines go to standard error: standard output is for pictures. Whoever wrote them, they command no
// terminal and are one line each.
class Logger : public ILogger {
 public:
  explicit Logger(const std::string& name)
      : logger_(name, std::make_shared<spdlog::sinks::stderr_color_sink_mt>(Colours())) {
    logger_.set_level(spdlog::level::trace);
    logger_.set_pattern("%Y-%m-%d %H:%M:%S.%e %^%l%$ [%n] %v (%g:%#)");
  }

  Level GetLevel() const override { return currentLevel; }

  void Log(Level level, const std::string& text, const char* file, size_t line) const override {
    logger_.log(spdlog::source_loc{file, static_cast<int>(line), ""}, ToSpdlog(level),
                spdlog::string_view_t(qel::Printable(text)));
  }

 private:
  mutable spdlog::logger logger_;  // thread-safe; its log operation is not const
};

// The host's loggers; they live as long as the process.
class Loggers {
 public:
  static Loggers& Instance() {
    static Loggers loggers;
    return loggers;
  }

  ILogger& Get(const std::string& name) {
    const std::lock_guard<std::mutex> lock(loggersAccess_);
    return loggers_.try_emplace(name, name).first->second;
  }

 private:
  std::mutex loggersAccess_;  // guards loggers_
  std::map<std::string, Logger> loggers_;
};

ILogger::Level FromFramework(qel::LogLevel level) {
  switch (level) {
    case qel::QEL_TRACE:
      return ILogger::Level_Trace;
    case qel::QEL_DEBUG:
      return ILogger::Level_Debug;
    case qel::QEL_INFO:
      return ILogger::Level_Info;
    case qel::QEL_WARNING:
      return ILogger::Level_Warning;
    case qel::QEL_ERROR:
      break;
  }
  return ILogger::Level_Error;
}

class FrameworkLogWriter : public qel::ILoggerWriter {
 public:
  void WriteLog(qel::LogLevel level, const char* message, const char*, const char* file,
                const char* line, const char*, const char*, const char*) override {
    const ILogger::Level hostLevel = FromFramework(level);
    if (logger_.GetLevel() <= hostLevel)
      logger_.Log(hostLevel, message, file, std::stoul(line));
  }

 private:
  const ILogger& logger_ = LoggingManager::GetLogger("qel");
};

}  // namespace

ILogger& LoggingManager::GetLogger(const std::string& name) {
  return Loggers::Instance().Get(name);
}

ILogger* LoggingManager::GetLoggerPtr(const std::string& name) {
  return &GetLogger(name);
}

void SetLogLevel(ILogger::Level level) {
  currentLevel = level;
}

std::shared_ptr<qel::ILoggerWriter> CreateFrameworkLogWriter() {
  return std::make_shared<FrameworkLogWriter>();
}

}  // namespace orl::mv::logging
