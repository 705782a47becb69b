#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

// Small pieces of the parsers of arguments. Nothing here recurses: an argument may be of any
// length.
namespace Moravel::Play {

// Takes the character from the beginning of the text, if it is there.
inline bool TakeCharacter(std::string_view& text, char character) {
  if (!text.starts_with(character))
    return false;
  text.remove_prefix(1);
  return true;
}

// Takes everything before the last `separator`, and that; nothing when there is none.
inline std::optional<std::string_view> TakeBeforeLast(std::string_view& text, char separator) {
  const size_t at = text.rfind(separator);
  if (at == std::string_view::npos)
    return std::nullopt;
  const std::string_view before = text.substr(0, at);
  text.remove_prefix(at + 1);
  return before;
}

inline bool AreDigits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// A number made of decimal digits alone; nothing when it is above `most`, or no such number.
inline std::optional<int64_t> ParseDigits(std::string_view text, int64_t most) {
  int64_t number = 0;
  if (!AreDigits(text) ||
      std::from_chars(text.data(), text.data() + text.size(), number).ec != std::errc() ||
      number > most)
    return std::nullopt;
  return number;
}

}  // namespace Moravel::Play
