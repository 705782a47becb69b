#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "elements/storage/ByteReader.h"
#include "qel/WorkflowStepImplementation.h"

// The boxes of a MOV or MP4 file ("QuickTime File Format"; ISO/IEC 14496-12).
namespace qel {

constexpr int64_t kBoxHeaderBytes = 8;
constexpr size_t kVersionBytes = 4;  // version and flags, in front of many contents

// Calls function(name, content) for each box of a content; padding too short for one ends it.
// Throws QELRuntimeError when a box says that it is longer than what holds it.
template <typename Function>
void ForEachBox(std::span<const uint8_t> boxes, Function function) {
  ByteReader reader(boxes, "header");
  while (reader.Left() >= size_t{kBoxHeaderBytes}) {
    const size_t whole = reader.Left();
    uint64_t size = reader.Big32();
    const std::string name = reader.Name();
    if (size == 0 && name == std::string(4, '\0'))  // the end of a list
      return;
    if (size == 1)
      size = reader.Big64();
    else if (size == 0)
      size = whole;
    const size_t header = whole - reader.Left();
    if (size < header || size > whole) {
      throw QELRuntimeError(QEL_TEXT("its header is damaged or truncated: a box says "
                                     << size << " bytes where " << whole << " are left"));
    }
    function(name, reader.Take(static_cast<size_t>(size) - header));
  }
}

// The content of the first box of that name, nothing when there is none.
inline std::span<const uint8_t> FindBox(std::span<const uint8_t> boxes, std::string_view wanted) {
  std::span<const uint8_t> found;
  ForEachBox(boxes, [&](const std::string& name, std::span<const uint8_t> content) {
    if (found.data() == nullptr && name == wanted)
      found = content;
  });
  return found;
}

inline std::span<const uint8_t> FindBox(std::span<const uint8_t> boxes,
                                        std::initializer_list<std::string_view> path) {
  for (const std::string_view name : path)
    boxes = FindBox(boxes, name);
  return boxes;
}

}  // namespace qel
