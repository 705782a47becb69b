#include "sinks/VisualText.h"

#include <fribidi.h>

#include <vector>

namespace Moravel::Play {

std::string ToVisualOrder(const std::string& text) {
  constexpr size_t kMostBytes = 4;  // of a character
  std::vector<FriBidiChar> logical(text.size() + 1);
  std::vector<FriBidiChar> visual(text.size() + 1);
  FriBidiStrIndex length =
      fribidi_charset_to_unicode(FRIBIDI_CHAR_SET_UTF8, text.data(),
                                 static_cast<FriBidiStrIndex>(text.size()), logical.data());
  FriBidiParType direction = FRIBIDI_PAR_LTR;
  if (fribidi_log2vis(logical.data(), length, &direction, visual.data(), nullptr, nullptr,
                      nullptr) == 0)
    return text;
  // Marks stay where a ligature took letters together.
  length = fribidi_remove_bidi_marks(visual.data(), length, nullptr, nullptr, nullptr);
  std::string shown(kMostBytes * static_cast<size_t>(length) + 1, '\0');
  shown.resize(static_cast<size_t>(
      fribidi_unicode_to_charset(FRIBIDI_CHAR_SET_UTF8, visual.data(), length, shown.data())));
  return shown;
}

}  // namespace Moravel::Play
