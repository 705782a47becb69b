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

// What fontconfig matches first are the characters, then the family.
std::string FamilyWith(const FcCharSet* characters, bool bold) {
  const Pattern wanted(FcPatternCreate());
  FcPatternAddCharSet(wanted.get(), FC_CHARSET, characters);
  FcPatternAddString(wanted.get(), FC_FAMILY, FontconfigText(kFamily));
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

}  // namespace

std::vector<FontRun> FontRunsOf(const std::string& logical, bool bold) {
  const std::string text = ToVisualOrder(logical);
  std::vector<FontRun> runs;
  Characters characters;  // of the last run; empty for a Latin one
  const auto end = [&] {
    if (characters)
      runs.back().family = FamilyWith(characters.get(), bold);
  };
  for (size_t at = 0; at < text.size();) {
    FcChar32 character = 0;
    const int left = static_cast<int>(text.size() - at);
    const int length = FcUtf8ToUcs4(FontconfigText(text.data() + at), &character, left);
    if (length <= 0)
      break;
    const bool isLatin = character < kFirstBeyondLatin;
    if (runs.empty() || isLatin == (characters != nullptr)) {
      end();
      runs.push_back({"", kFamily});
      characters.reset(isLatin ? nullptr : FcCharSetCreate());
    }
    if (!isLatin)
      FcCharSetAddChar(characters.get(), character);
    runs.back().text += text.substr(at, static_cast<size_t>(length));
    at += static_cast<size_t>(length);
  }
  end();
  return runs;
}

}  // namespace Moravel::Play
