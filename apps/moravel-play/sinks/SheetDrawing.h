#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "command/Size.h"
#include "qel/Samples.h"

namespace Moravel::Play {

// One picture of a contact sheet.
struct SheetCell {
  std::string state = "not played";  // empty: nothing is wrong with it
  std::string caption;
  qel::BufferConstPtr thumbnail;  // BGRA; empty: nothing to show
};

// The pictures of one track in one size.
struct SheetSection {
  std::string title;
  std::string facts;
  Size thumbnail;
  std::vector<SheetCell> cells;
};

// Opaque, four bytes B, G, R and unused to a pixel.
struct DrawnSheet {
  std::shared_ptr<const uint8_t> pixels;
  int stride = 0;
  Size size;
};

// Draws the sections one below the other. One thread at a time: it uses, and frees, what the
// drawing library keeps for all. Errors are OutputError, std::bad_alloc for want of memory.
using DrawSheetFunction = void(const std::vector<SheetSection>& sections, DrawnSheet& sheet);

}  // namespace Moravel::Play

// It is in a part of the program that is loaded when it is needed (SheetModule.h).
extern "C" [[gnu::visibility("default")]] Moravel::Play::DrawSheetFunction MoravelDrawSheet;
