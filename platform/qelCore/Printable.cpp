#include "qelCore/Printable.h"

#include <cstddef>
#include <cstdint>

namespace qel {

namespace {

// Of three bytes: separators of lines, and what turns the direction of the text behind it.
bool TurnsText(uint8_t first, uint8_t second, uint8_t third) {
  const bool isInTheFirst = second == 0x80 && third >= 0xA8 && third <= 0xAE;   // U+2028 to U+202E
  const bool isInTheSecond = second == 0x81 && third >= 0xA6 && third <= 0xA9;  // U+2066 to U+2069
  return first == 0xE2 && (isInTheFirst || isInTheSecond);
}

// The length of the UTF-8 character (RFC 3629) at the text's beginning; 0 for a control character
// and for bytes that are none.
size_t PrintableLength(std::string_view text) {
  const auto at = [text](size_t i) {
    return i < text.size() ? static_cast<uint8_t>(text[i]) : uint8_t{0};
  };
  const auto continues = [&at](size_t i) { return (at(i) & 0xC0) == 0x80; };
  const uint8_t first = at(0), second = at(1);
  if (first < 0x80)
    return first >= 0x20 && first != 0x7F ? 1 : 0;
  if (first >= 0xC2 && first < 0xE0)
    return continues(1) && (first != 0xC2 || second >= 0xA0) ? 2 : 0;
  if (first >= 0xE0 && first < 0xF0) {
    const bool isOverlong = first == 0xE0 && second < 0xA0;
    const bool isSurrogate = first == 0xED && second >= 0xA0;
    const bool isCharacter = continues(1) && continues(2) && !isOverlong && !isSurrogate;
    return isCharacter && !TurnsText(first, second, at(2)) ? 3 : 0;
  }
  if (first >= 0xF0 && first < 0xF5) {
    const bool isOutside = (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
    return continues(1) && continues(2) && continues(3) && !isOutside ? 4 : 0;
  }
  return 0;
}

}  // namespace

std::string Printable(std::string_view text) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string printable;
  while (!text.empty()) {
    const size_t length = PrintableLength(text);
    if (length != 0) {
      printable += text.substr(0, length);
    } else {
      const auto byte = static_cast<uint8_t>(text.front());
      printable += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
    text.remove_prefix(length != 0 ? length : 1);
  }
  return printable;
}

}  // namespace qel
