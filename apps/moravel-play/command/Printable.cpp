#include "command/Printable.h"

#include <cstdint>

namespace Moravel::Play {

namespace {

uint8_t ByteAt(std::string_view text, size_t at) {
  return static_cast<uint8_t>(text[at]);
}

// How many bytes the character at the beginning of the text has; 0 when it is not to be shown.
// The shortest form only, no surrogates, nothing above U+10FFFF (RFC 3629, section 4).
size_t CharacterLength(std::string_view text) {
  const uint8_t first = ByteAt(text, 0);
  if (first < 0x80)
    return first >= ' ' && first != 0x7F ? 1 : 0;
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length)
    return 0;
  uint32_t character = first & (0x7FU >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((ByteAt(text, i) & 0xC0) != 0x80)
      return 0;
    character = character << 6 | (ByteAt(text, i) & 0x3FU);
  }
  const bool surrogate = character >= 0xD800 && character <= 0xDFFF;
  const bool tooLong = (length == 3 && character < 0x800) || (length == 4 && character < 0x10000);
  const bool control = character < 0xA0;
  return surrogate || tooLong || control || character > 0x10FFFF ? 0 : length;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string printable;
  printable.reserve(text.size());
  while (!text.empty()) {
    const size_t length = CharacterLength(text);
    printable += length == 0 ? "?" : text.substr(0, length);
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return printable;
}

}  // namespace Moravel::Play
