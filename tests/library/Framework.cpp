#include "Framework.h"

#include <cstdlib>
#include <locale>
#include <new>

#include "logging/LoggingManager.h"

namespace {

thread_local int failingAllocation = -1;  // counts down to the one that throws, once
Moravel::Test::LibraryTest* current = nullptr;

struct Logger : orl::mv::logging::ILogger {
  Level GetLevel() const override { return current->level_; }
  void Log(Level level, const std::string& text, const char* file, size_t) const override {
    current->Note("Log");
    current->onLog_();
    current->hostLog_.emplace_back(level, *file == '/' ? file : text);
  }
} logger;

}  // namespace

[[gnu::noinline]] void* operator new(size_t size) {
  void* const memory = failingAllocation-- == 0 ? nullptr : std::malloc(size);
  failingAllocation = std::max(failingAllocation, -1);
  return memory != nullptr ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}

orl::mv::logging::ILogger& orl::mv::logging::LoggingManager::GetLogger(const std::string&) {
  return logger;
}
orl::mv::logging::ILogger* orl::mv::logging::LoggingManager::GetLoggerPtr(const std::string&) {
  return current->hasLogger_ ? &logger : nullptr;
}

namespace Moravel::Test {

LibraryTest::LibraryTest() {
  struct Grouping : std::numpunct<char> {
    std::string do_grouping() const override { return "\3"; }
  };
  std::locale::global(std::locale(std::locale::classic(), new Grouping));  // texts do not show it
  current = this;
  qel::SetCurrentLoggerWriter({std::shared_ptr<void>(), this});
  Register(std::make_shared<Source>());
  Register(std::make_shared<Decoder>());
}

void LibraryTest::Note(const std::string& call) {
  {
    const std::lock_guard<std::mutex> lock(access_);
    calls_.push_back(call);
    if (failingCall_ >= 0 && failingCall_-- == 0)
      throw std::runtime_error("failing " + call);
  }
  onCall_(call);
}

void LibraryTest::WriteLog(qel::LogLevel level, const char* message, const char* context,
                           const char* file, const char*, const char*, const char*, const char*) {
  frameworkLog_.emplace_back(level, *file == '/' ? file : context + std::string(message));
}

void LibraryTest::ExpectCheck(const std::string& text, const std::function<void()>& act) {
  frameworkLog_.clear();
  EXPECT_EQ(ErrorOf(act), text);
  EXPECT_THAT(frameworkLog_, testing::ElementsAre(std::pair(int{qel::QEL_ERROR}, text)));
}

void LibraryTest::FailEach(const std::function<void()>& act,
                           const std::function<void(bool thrown)>& check) {
  for (int* const counter : {&failingCall_, &failingAllocation}) {
    bool failed = true;
    for (int at = 0; failed; ++at) {
      *counter = at;
      bool thrown = false;
      try {
        act();
      } catch (const std::exception&) {
        thrown = true;
      }
      failed = std::exchange(*counter, -1) < 0;
      SCOPED_TRACE((counter == &failingCall_ ? "call " : "allocation ") + std::to_string(at));
      check(thrown);
      act();
    }
  }
}

void Note(const std::string& call) {
  current->Note(call);
}

std::string Text(const Config& config, std::initializer_list<const char*> keys) {
  std::string text;
  for (const std::string key : keys) {
    const auto value = config->GetParamInt64(key);
    text += value ? " " + key + "=" + std::to_string(*value) : "";
  }
  return text;
}

std::string ErrorOf(const std::function<void()>& act) {
  try {
    act();
  } catch (const qel::QELRuntimeError& error) {
    return error.what();
  } catch (const std::exception& error) {
    return std::string("std ") + error.what();
  }
  return "no exception";
}

}  // namespace Moravel::Test
