#pragma once

#include <string>
#include <string_view>

namespace Moravel::Play {

// Columns that a text takes in a terminal: none for combining characters, two for wide ones.
int DisplayWidth(std::string_view text);
// The text in exactly so many columns: filled up with spaces, or with its beginning cut off, as the
// end of a path tells more.
std::string FitToWidth(std::string_view text, int width);

}  // namespace Moravel::Play
