#include "sinks/SheetFont.h"

#include <fontconfig/fontconfig.h>

#include <memory>

#include "sinks/VisualText.h"

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

const FcChar8* FontconfigText(const char* text) {
  return reinterpret_cast<const FcChar8*>(text);
}

struct Font {
  std::string family;
  Characters characters;  // that it has; null: nobody knows
};

// The installed font that has the character, of that style. What fontconfig matches first are the
// characters, then the family.
Font FontWith(FcChar32 character, bool bold) {
  const Characters wanted(FcCharSetCreate());
  FcCharSetAddChar(wanted.get(), character);
  const Pattern pattern(FcPatternCreate());
  FcPatternAddCharSet(pattern.get(), FC_CHARSET, wanted.get());
  FcPatternAddString(pattern.get(), FC_FAMILY, FontconfigText(kFamily));
  FcPatternAddInteger(pattern.get(), FC_WEIGHT, bold ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
  FcConfigSubstitute(nullptr, pattern.get(), FcMatchPattern);
  FcDefaultSubstitute(pattern.get());
  FcResult result = FcResultMatch;
  const Pattern found(FcFontMatch(nullptr, pattern.get(), &result));
  FcChar8* family = nullptr;
  FcCharSet* characters = nullptr;
  if (!found || FcPatternGetString(found.get(), FC_FAMILY, 0, &family) != FcResultMatch ||
      FcPatternGetCharSet(found.get(), FC_CHARSET, 0, &characters) != FcResultMatch)
    return {kFamily, nullptr};
  return {reinterpret_cast<const char*>(family), Characters(FcCharSetCopy(characters))};
}

bool Has(const Font& font, FcChar32 character) {
  return font.characters && FcCharSetHasChar(font.characters.get(), character) == FcTrue;
}

}  // namespace

std::vector<FontRun> FontRunsOf(const std::string& logical, bool bold) {
  const std::string text = ToVisualOrder(logical);
  std::vector<FontRun> runs;
  Font font;  // of the last run that is not Latin
  for (size_t at = 0; at < text.size();) {
    FcChar32 character = 0;
    const int left = static_cast<int>(text.size() - at);
    const int length = FcUtf8ToUcs4(FontconfigText(text.data() + at), &character, left);
    if (length <= 0)
      break;
    const bool isLatin = character < kFirstBeyondLatin;
    if (!isLatin && !Has(font, character))
      font = FontWith(character, bold);
    const std::string family = isLatin ? kFamily : font.family;
    if (runs.empty() || runs.back().family != family)
      runs.push_back({"", family});
    runs.back().text += text.substr(at, static_cast<size_t>(length));
    at += static_cast<size_t>(length);
  }
  return runs;
}

}  // namespace Moravel::Play
