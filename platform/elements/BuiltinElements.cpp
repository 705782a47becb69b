#include "elements/BuiltinElements.h"

#include "elements/mjpeg/MotionJpegDecoder.h"

namespace qel {

void RegisterBuiltinElements() {
  RegisterMotionJpegDecoder();
}

}  // namespace qel
