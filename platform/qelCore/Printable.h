#pragma once

#include <string>
#include <string_view>

#include "qel/Export.h"

namespace qel {

// Text of a server, a file or a command line as it may stand in a message, a log line, a terminal
// or a picture: control characters (C0, DEL, C1, with which a terminal can be told what to do, and
// those that turn the direction of what follows or end the line) and what is no UTF-8 become
// "\xNN", byte by byte.
QEL_API std::string Printable(std::string_view text);

}  // namespace qel
