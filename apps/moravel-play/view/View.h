#pragma once

#include "command/CommandPage.h"

namespace Moravel::Play {

// The command "view": a page in the browser that shows tracks. Throws UsageError.
int RunView(int argc, const char* const* argv);

extern const CommandText kViewText;

}  // namespace Moravel::Play
