#pragma once

#include <cstdint>

namespace Moravel::Bench {

// Allocations of the calling thread since it began.
uint64_t AllocationCount();

}  // namespace Moravel::Bench
