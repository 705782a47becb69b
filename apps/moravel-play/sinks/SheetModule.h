#pragma once

#include "sinks/SheetDrawing.h"

namespace Moravel::Play {

// What draws contact sheets, loaded when there is to be one, so that a program that writes none
// starts without the drawing library and the fifteen others that it brings: a sixth of its start.
class SheetModule {
 public:
  // Throws OutputError when it cannot be loaded.
  SheetModule();

  DrawnSheet Draw(const std::vector<SheetSection>& sections) const;

 private:
  DrawSheetFunction* const draw_;
};

}  // namespace Moravel::Play
