#include "elements/BuiltinElements.h"

#include "elements/mjpeg/MotionJpegDecoder.h"
#include "elements/storage/StorageSource.h"

namespace qel {

void RegisterBuiltinElements() {
  RegisterStorageSource();
  RegisterMotionJpegDecoder();
}

}  // namespace qel
