#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "sinks/Picture.h"

namespace Moravel::Play {

// One picture of a contact sheet.
struct SheetCell {
  bool played = false;  // all below is known
  PictureState state = PictureState::Fine;
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

// How high a section with so many cells is, and the most that a sheet can be.
int SheetSectionHeight(Size thumbnail, int cells);
extern const int kMaxSheetHeight;
extern const int kThumbnailWidth;

// Draws the sections one below the other and writes the sheet as a PNG file. One thread at a time:
// it uses, and frees, what the drawing library keeps for all. Errors as in OutputFile.
void DrawSheet(const std::filesystem::path& path, const std::vector<SheetSection>& sections);

}  // namespace Moravel::Play
