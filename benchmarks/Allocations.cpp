#include "Allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local uint64_t allocations = 0;

}  // namespace

void* operator new(size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size))
    return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, size_t) noexcept {
  std::free(memory);
}

namespace Moravel::Bench {

uint64_t AllocationCount() {
  return allocations;
}

}  // namespace Moravel::Bench
