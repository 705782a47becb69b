#pragma once

namespace qel {

// The last folder and the name of a source file ("qel/SourceFile.h"): the same text on every
// machine and in every build folder.
constexpr const char* ShortSourceFile(const char* path) {
  const char* folder = path;
  const char* name = path;
  for (const char* at = path; *at != '\0'; ++at) {
    if (*at == '/') {
      folder = name;
      name = at + 1;
    }
  }
  return folder;
}

}  // namespace qel

#define QEL_SOURCE_FILE ::qel::ShortSourceFile(__FILE__)
