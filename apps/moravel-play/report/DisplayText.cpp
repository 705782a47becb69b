#include "report/DisplayText.h"

#include <locale.h>
#include <wchar.h>

#include <algorithm>
#include <memory>

namespace Moravel::Play {

namespace {

// The C library's tables of UTF-8, whatever the user's locale is; for this thread, while it lives.
class Utf8Locale {
 public:
  Utf8Locale() : before_(::uselocale(Get())) {}
  ~Utf8Locale() { ::uselocale(before_); }
  Utf8Locale(const Utf8Locale&) = delete;
  Utf8Locale& operator=(const Utf8Locale&) = delete;

 private:
  static locale_t Get() {
    static const locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return utf8;  // null, which changes nothing, where the system has none
  }
  const locale_t before_;
};

struct Character {
  size_t bytes;
  int width;
};

Character First(std::string_view text) {
  wchar_t character = 0;
  mbstate_t state = {};
  const size_t bytes = ::mbrtowc(&character, text.data(), text.size(), &state);
  if (bytes == 0 || bytes > text.size())
    return {1, 1};
  return {bytes, std::max(0, ::wcwidth(character))};
}

}  // namespace

int DisplayWidth(std::string_view text) {
  const Utf8Locale utf8;
  int width = 0;
  while (!text.empty()) {
    const Character first = First(text);
    width += first.width;
    text.remove_prefix(first.bytes);
  }
  return width;
}

std::string FitToWidth(std::string_view text, int width) {
  constexpr std::string_view kCut = "\u2026";
  int taken = DisplayWidth(text);
  std::string fitted;
  if (taken > width) {
    const Utf8Locale utf8;
    for (++taken; taken > width && !text.empty(); text.remove_prefix(First(text).bytes))
      taken -= First(text).width;
    fitted = kCut;
  }
  return fitted.append(text).append(static_cast<size_t>(std::max(0, width - taken)), ' ');
}

}  // namespace Moravel::Play
