#pragma once

#include <string>
#include <string_view>

namespace qel {

// Text of a server or a file as it may stand in a message: control characters (C0, DEL, C1, with
// which a terminal can be told what to do) and what is no UTF-8 become "\xNN", byte by byte.
std::string Printable(std::string_view text);

}  // namespace qel
