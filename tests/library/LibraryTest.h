#pragma once

#include <gmock/gmock.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "FakeFramework.h"
#include "qel/QELRuntimeError.h"

namespace fake {

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

// Counts when one is taken while another is not over.
struct Turns {
  void Take() {
    overlaps += inside++ != 0;
    std::this_thread::yield();
    --inside;
  }

  std::atomic<int> inside = 0;
  std::atomic<int> overlaps = 0;
};

// Calls act(thread, 0), act(thread, 1)... in that many threads at once.
inline void RunInThreads(int threads, int calls, const std::function<void(int, int)>& act) {
  std::vector<std::jthread> running;
  for (int thread = 0; thread < threads; ++thread) {
    running.emplace_back([&act, thread, calls] {
      for (int i = 0; i < calls; ++i)
        act(thread, i);
    });
  }
}

class LibraryTest : public testing::Test {
 protected:
  Framework framework_;
};

}  // namespace fake
