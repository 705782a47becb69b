#include "elements/mjpeg/PictureMemory.h"

#include "elements/MemoryPool.h"

namespace qel::mjpeg {

std::shared_ptr<uint8_t[]> TakePictureMemory(size_t bytes) {
  // One for the process: pictures of one size come and go through many elements.
  static const auto pool = std::make_shared<MemoryPool>(kMaxIdlePictureMemory);
  return pool->Take(bytes);
}

}  // namespace qel::mjpeg
