#pragma once

#include <string>
#include <string_view>

namespace Moravel::Play {

// The text as a terminal or a sheet may get it: UTF-8 without control characters. Names of files
// and texts of servers may hold any bytes; an escape sequence among them would command the
// terminal. Each byte of a control character (C0, DEL, C1) or of what is no UTF-8 becomes a
// question mark.
std::string Printable(std::string_view text);

}  // namespace Moravel::Play
