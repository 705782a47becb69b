#pragma once

#include <string_view>

namespace Moravel::Play {

// The files of the page, which the build puts into the program.
struct PageFile {
  std::string_view name;  // "view.js"
  std::string_view type;
  std::string_view content;
};

// Null when there is no such file.
const PageFile* FindPageFile(std::string_view name);

}  // namespace Moravel::Play
