#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "FakeFramework.h"
#include "Player/ISample.h"
#include "qel/QELRuntimeError.h"

namespace fake {

using Lines = std::vector<LogLine>;
using Calls = std::vector<std::string>;

// The text of the framework error that `act` throws; how it differs when it throws none.
inline std::string ErrorOf(const std::function<void()>& act) {
  try {
    act();
  } catch (const qel::QELRuntimeError& error) {
    return error.what();
  } catch (const std::exception& error) {
    return std::string("another exception: ") + error.what();
  }
  return "no exception";
}

// A failed check of the library: its one log line and the error it throws.
inline void ExpectCheck(Framework& framework, const std::string& text, const std::string& file,
                        const std::function<void()>& act) {
  framework.frameworkLog_.clear();
  EXPECT_EQ(ErrorOf(act), text);
  EXPECT_THAT(framework.frameworkLog_, testing::ElementsAre(LogLine{qel::QEL_ERROR, text, file}));
}

inline std::string Identity(const void* object) {
  return std::to_string(reinterpret_cast<intptr_t>(object));
}

inline Moravel::Time::TimePoint At(uint64_t count, uint64_t a, uint64_t b) {
  return Moravel::Time::TimePoint().FromRatio(count, a, b);
}

// What a call of the framework may throw, and whether it came out unchanged.
struct Failure {
  std::string name;
  std::function<void()> raise;
};

inline std::vector<Failure> Failures() {
  return {{"runtime", [] { throw std::runtime_error("runtime"); }},
          {"framework", [] { throw qel::QELRuntimeError("framework"); }},
          {"other", [] { throw 7; }},
          {"allocation", [] { throw std::bad_alloc(); }}};
}

class LibraryTest : public testing::Test {
 protected:
  Framework framework_;
};

}  // namespace fake
