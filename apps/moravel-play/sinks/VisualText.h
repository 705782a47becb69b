#pragma once

#include <string>

namespace Moravel::Play {

// A text (UTF-8) in the order in which its letters stand from left to right on a line that begins
// at the left: Hebrew and Arabic parts turned round (Unicode Standard Annex 9), Arabic letters in
// the forms that join them.
std::string ToVisualOrder(const std::string& text);

}  // namespace Moravel::Play
