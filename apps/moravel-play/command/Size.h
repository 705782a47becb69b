#pragma once

#include <string>

namespace Moravel::Play {

// Picture size in pixels.
struct Size {
  int width = 0;
  int height = 0;

  std::string ToString() const { return std::to_string(width) + "x" + std::to_string(height); }
  bool operator==(const Size&) const = default;
};

}  // namespace Moravel::Play
