#pragma once

#include <turbojpeg.h>

#include <string_view>

#include "qelCore/OutOfMemory.h"

namespace qel {

// What TurboJPEG says of its last failure. Want of memory, which it tells by its text alone
// (jerror.h of its sources, and its own), is no failure of the picture: std::bad_alloc. `handle` is
// null for one that could not be made.
inline const char* TurboJpegError(void* handle) {
  const char* const text = tjGetErrorStr2(handle);
  const std::string_view view(text);
  if (view.find("Insufficient memory") != view.npos ||
      view.find("Memory allocation failure") != view.npos)
    FailOutOfMemory();
  return text;
}

}  // namespace qel
