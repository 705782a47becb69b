#include "storage-server/ByteRange.h"

#include <strings.h>

#include <algorithm>
#include <charconv>
#include <limits>

namespace Moravel::Player {

namespace {

// Cuts a number off the text; the largest one in place of those that are too large.
std::optional<uint64_t> CutNumber(std::string_view& text) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc::invalid_argument) {
    return std::nullopt;
  }
  text.remove_prefix(static_cast<size_t>(end - text.data()));
  return error == std::errc() ? number : std::numeric_limits<uint64_t>::max();
}

}  // namespace

std::optional<ByteRange> ParseRange(std::string_view text, uint64_t fileSize) {
  constexpr std::string_view kUnit = "bytes=";
  if (text.size() < kUnit.size() || ::strncasecmp(text.data(), kUnit.data(), kUnit.size()) != 0) {
    return std::nullopt;
  }
  text.remove_prefix(kUnit.size());
  const std::optional<uint64_t> first = CutNumber(text);
  if (!text.starts_with('-')) {
    return std::nullopt;
  }
  text.remove_prefix(1);
  const std::optional<uint64_t> last = CutNumber(text);
  if (!text.empty() || (!first && !last) || (first && last && *last < *first)) {
    return std::nullopt;
  }
  if (!first) {
    const uint64_t size = std::min(*last, fileSize);
    return ByteRange{fileSize - size, size};
  }
  if (*first >= fileSize) {
    return ByteRange{0, 0};
  }
  return ByteRange{*first, std::min(last.value_or(fileSize), fileSize - 1) - *first + 1};
}

std::string ContentRange(const ByteRange& range, uint64_t fileSize) {
  const std::string part = range.size == 0 ? "*"
                                           : std::to_string(range.offset) + '-' +
                                                 std::to_string(range.offset + range.size - 1);
  return "bytes " + part + '/' + std::to_string(fileSize);
}

}  // namespace Moravel::Player
