#pragma once

#include <string>
#include <vector>

namespace Moravel::Demo {

// The bytes of an AVI file ("RIFF", with an "idx1" index) with one motion-JPEG track.
struct AviFile {
  int width;
  int height;
  int picturesPerSecond;
  std::vector<std::string> pictures;  // JPEG; below one GiB together, which is all that idx1 covers

  std::string Bytes() const;
};

}  // namespace Moravel::Demo
