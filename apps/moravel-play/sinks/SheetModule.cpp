#include "sinks/SheetModule.h"

#include <dlfcn.h>

#include <string>

#include "sinks/OutputFile.h"

namespace Moravel::Play {

namespace {

// Stays loaded to the end: what it has drawn is freed by it.
DrawSheetFunction* Load() {
  void* const module = ::dlopen("moravel-contact-sheet.so", RTLD_NOW | RTLD_LOCAL);
  void* const draw = module == nullptr ? nullptr : ::dlsym(module, "MoravelDrawSheet");
  if (draw == nullptr)
    throw OutputError(std::string("contact sheets cannot be drawn: ") + ::dlerror());
  return reinterpret_cast<DrawSheetFunction*>(draw);
}

}  // namespace

SheetModule::SheetModule() : draw_(Load()) {}

DrawnSheet SheetModule::Draw(const std::vector<SheetSection>& sections) const {
  DrawnSheet sheet;
  draw_(sections, sheet);
  return sheet;
}

}  // namespace Moravel::Play
