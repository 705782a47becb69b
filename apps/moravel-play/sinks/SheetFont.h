#pragma once

#include <string>

namespace Moravel::Play {

// The family of an installed font that has the characters of a text (UTF-8): "DejaVu Sans" where
// that does, else the one that lacks the fewest. Asks fontconfig for what is not Latin alone.
std::string FontFamilyFor(const std::string& text, bool bold);

}  // namespace Moravel::Play
