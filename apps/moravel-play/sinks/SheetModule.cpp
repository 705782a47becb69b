#include "sinks/SheetModule.h"

#include <dlfcn.h>

#include <filesystem>
#include <string>

#include "qelCore/OutOfMemory.h"
#include "sinks/OutputFile.h"

namespace Moravel::Play {

namespace {

constexpr const char* kModule = "moravel-contact-sheet.so";
// With all libraries that come with it, about twice.
constexpr size_t kModuleBytes = size_t{32} << 20;

// Beside the program, or where it is installed.
std::filesystem::path ModulePath() {
  const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  const auto path = folder / kModule;
  return std::filesystem::exists(path) ? path : folder / MORAVEL_MODULE_FOLDER / kModule;
}

// Stays loaded to the end: what it has drawn is freed by it.
DrawSheetFunction* Load() {
  void* const module = ::dlopen(ModulePath().c_str(), RTLD_NOW | RTLD_LOCAL);
  if (module == nullptr)
    qel::TryMemory(kModuleBytes);
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
