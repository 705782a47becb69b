#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace qel::mjpeg {

// Most memory of given-back pictures that waits for its next use; more goes back to the system.
constexpr size_t kMaxIdlePictureMemory = size_t{64} << 20;

// Memory for a picture of that many bytes, not initialised. Reuses what an earlier picture of the
// same size gave back, so that a running decoder maps and clears no fresh pages. Thread-safe; the
// memory may outlive everything else in the process.
std::shared_ptr<uint8_t[]> TakePictureMemory(size_t bytes);

}  // namespace qel::mjpeg
