#include "sinks/SheetFont.h"

#include <fontconfig/fontconfig.h>

#include <memory>

namespace Moravel::Play {

namespace {

constexpr const char* kFamily = "DejaVu Sans";
constexpr FcChar32 kFirstBeyondLatin = 0x250;

struct DestroyPattern {
  void operator()(FcPattern* pattern) const { FcPatternDestroy(pattern); }
};
struct DestroyCharacters {
  void operator()(FcCharSet* characters) const { FcCharSetDestroy(characters); }
};
using Pattern = std::unique_ptr<FcPattern, DestroyPattern>;
using Characters = std::unique_ptr<FcCharSet, DestroyCharacters>;

// Those that not every font has; empty when there are none.
Characters BeyondLatin(const std::string& text) {
  Characters characters;
  const auto* next = reinterpret_cast<const FcChar8*>(text.data());
  int left = static_cast<int>(text.size()), length = 0;
  for (FcChar32 each = 0; left > 0; next += length, left -= length) {
    length = FcUtf8ToUcs4(next, &each, left);
    if (length <= 0)
      break;
    if (each < kFirstBeyondLatin)
      continue;
    if (!characters)
      characters.reset(FcCharSetCreate());
    FcCharSetAddChar(characters.get(), each);
  }
  return characters;
}

}  // namespace

// What fontconfig matches first are the characters, then the family.
std::string FontFamilyFor(const std::string& text, bool bold) {
  const Characters characters = BeyondLatin(text);
  if (!characters)
    return kFamily;
  const Pattern wanted(FcPatternCreate());
  FcPatternAddCharSet(wanted.get(), FC_CHARSET, characters.get());
  FcPatternAddString(wanted.get(), FC_FAMILY, reinterpret_cast<const FcChar8*>(kFamily));
  FcPatternAddInteger(wanted.get(), FC_WEIGHT, bold ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
  FcConfigSubstitute(nullptr, wanted.get(), FcMatchPattern);
  FcDefaultSubstitute(wanted.get());
  FcResult result = FcResultMatch;
  const Pattern found(FcFontMatch(nullptr, wanted.get(), &result));
  FcChar8* family = nullptr;
  if (!found || FcPatternGetString(found.get(), FC_FAMILY, 0, &family) != FcResultMatch)
    return kFamily;
  return reinterpret_cast<const char*>(family);
}

}  // namespace Moravel::Play
