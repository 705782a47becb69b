#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// The byte ranges of HTTP (RFC 9110, section 14).
namespace Moravel::Player {

struct ByteRange {
  uint64_t offset;
  uint64_t size;  // 0: nothing of the file is in the range
};

// The part of the file that the value of a Range header names. Empty for anything else than one
// byte range: then the header does not count.
std::optional<ByteRange> ParseRange(std::string_view text, uint64_t fileSize);

// The value of the Content-Range header.
std::string ContentRange(const ByteRange& range, uint64_t fileSize);

}  // namespace Moravel::Player
