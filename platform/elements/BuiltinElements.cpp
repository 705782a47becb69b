#include "elements/BuiltinElements.h"

#include "elements/mjpeg/MotionJpegDecoder.h"
#include "elements/storage/StorageSource.h"

namespace qel {

void RegisterBuiltinElements(int64_t beginningBytes) {
  RegisterStorageSource(beginningBytes);
  RegisterMotionJpegDecoder();
}

}  // namespace qel
