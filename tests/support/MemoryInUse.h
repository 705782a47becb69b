#pragma once

#include <malloc.h>

#include <cstdint>

namespace Moravel::Test {

// The bytes of the heap that somebody holds at the moment.
inline int64_t MemoryInUse() {
  const struct mallinfo2 heap = ::mallinfo2();
  return static_cast<int64_t>(heap.uordblks + heap.hblkhd);
}

}  // namespace Moravel::Test
