#pragma once

#include "command/Size.h"

namespace Moravel::Play {

// Where things are on a contact sheet; all in pixels.
constexpr int kMaxSheetHeight = 30000;  // the drawing library ends at 32767
constexpr int kThumbnailWidth = 320;
constexpr int kSheetColumns = 6;
constexpr int kSheetMargin = 40;
constexpr int kSheetGap = 16;
constexpr int kCaptionHeight = 36;
constexpr int kSectionHead = 84;
constexpr int kSectionGap = 24;

// How high a section with so many cells is.
constexpr int SheetSectionHeight(Size thumbnail, int cells) {
  const int rows = (cells + kSheetColumns - 1) / kSheetColumns;
  return kSectionHead + rows * (thumbnail.height + kCaptionHeight) + kSectionGap;
}

}  // namespace Moravel::Play
