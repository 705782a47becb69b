#pragma once

#include <string>
#include <vector>

namespace Moravel::Play {

// A part of a text, and the family of an installed font that it is to be drawn with.
struct FontRun {
  std::string text;
  std::string family;
};

// The runs of a text (UTF-8) from left to right: Latin ones in "DejaVu Sans", others in an
// installed font that has their characters. Asks fontconfig for those alone.
std::vector<FontRun> FontRunsOf(const std::string& text, bool bold);

}  // namespace Moravel::Play
