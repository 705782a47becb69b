#pragma once

#include <string>

namespace Moravel::Demo {

// Picture `number` of a moving scene of `count` pictures, with its number in large digits, as JPEG.
// Throws std::runtime_error.
std::string DrawPicture(int width, int height, int number, int count, int picturesPerSecond);

}  // namespace Moravel::Demo
