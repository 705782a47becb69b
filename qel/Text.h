#pragma once

#include <locale>
#include <sstream>

namespace qel {

// The stream in which every message is put together. Numbers read the same on every machine,
// whatever locale the process has set.
inline std::ostringstream TextStream() {
  std::ostringstream stream;
  stream.imbue(std::locale::classic());
  return stream;
}

}  // namespace qel

// The text of what may be streamed: QEL_TEXT("no track " << id).
#define QEL_TEXT(streamed) (::qel::TextStream() << streamed).str()
