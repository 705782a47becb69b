#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

// What every fuzz target defines.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace Moravel::Fuzz {

using Input = std::vector<uint8_t>;

// Good inputs to start from, made in code.
std::vector<Input> Seeds();

// Stops the program when what a target promises does not hold.
inline void Require(bool holds, const char* promise) {
  if (holds)
    return;
  std::fprintf(stderr, "does not hold: %s\n", promise);
  std::abort();
}

// While an input is looked at: a second of the processor's time is allowed, however long a busy or
// a frozen machine takes for it.
class Stopwatch {
 public:
  Stopwatch() = default;
  Stopwatch(const Stopwatch&) = delete;
  Stopwatch& operator=(const Stopwatch&) = delete;
  ~Stopwatch() {
    Require(std::clock() - begin_ <= CLOCKS_PER_SEC, "takes no longer than a second");
  }

 private:
  const std::clock_t begin_ = std::clock();
};

}  // namespace Moravel::Fuzz
