#pragma once

namespace qel {

// The last folder and the name of a source file ("qel/SourceLocation.h"): the same text on every
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

// Where a statement stands: as a default argument, where the caller stands. (It is what
// std::source_location is, which the clang of Debian 12 does not have.)
struct SourceLocation {
  static constexpr SourceLocation Current(const char* path = __builtin_FILE(),
                                          int line = __builtin_LINE()) {
    return {ShortSourceFile(path), line};
  }

  const char* file;
  int line;
};

}  // namespace qel
