#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
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

}  // namespace Moravel::Fuzz
