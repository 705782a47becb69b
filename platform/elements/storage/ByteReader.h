#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "qel/WorkflowStepImplementation.h"

namespace qel {

// Reads numbers one after the other from bytes that may be anything. Whatever lies behind their end
// is a QELRuntimeError that names what is read. The bytes outlive the reader. Not thread-safe.
class ByteReader {
 public:
  ByteReader(std::span<const uint8_t> bytes, std::string_view what) : left_(bytes), what_(what) {}

  size_t Left() const { return left_.size(); }
  std::span<const uint8_t> Rest() const { return left_; }

  std::span<const uint8_t> Take(size_t count) {
    if (count > left_.size()) {
      throw QELRuntimeError(QEL_TEXT("its " << what_ << " is damaged: " << count
                                            << " more bytes are wanted where " << left_.size()
                                            << " are left"));
    }
    const auto taken = left_.first(count);
    left_ = left_.subspan(count);
    return taken;
  }
  void Skip(size_t count) { Take(count); }

  uint8_t Byte() { return Take(1)[0]; }
  uint16_t Big16() { return static_cast<uint16_t>(Big(2)); }
  uint32_t Big32() { return static_cast<uint32_t>(Big(4)); }
  uint64_t Big64() { return Big(8); }
  uint16_t Little16() { return static_cast<uint16_t>(Little(2)); }
  uint32_t Little32() { return static_cast<uint32_t>(Little(4)); }
  uint64_t Little64() { return Little(8); }
  // Four characters, as files name their parts.
  std::string Name() {
    const auto name = Take(4);
    return {name.begin(), name.end()};
  }

 private:
  uint64_t Big(size_t count) {
    uint64_t value = 0;
    for (const uint8_t byte : Take(count))
      value = value << 8 | byte;
    return value;
  }
  uint64_t Little(size_t count) {
    uint64_t value = 0;
    int shift = 0;
    for (const uint8_t byte : Take(count)) {
      value |= uint64_t{byte} << shift;
      shift += 8;
    }
    return value;
  }

  std::span<const uint8_t> left_;
  const std::string_view what_;
};

}  // namespace qel
