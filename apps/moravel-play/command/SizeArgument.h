#pragma once

#include <string>

#include "command/Size.h"

namespace Moravel::Play {

// "640x360". Throws UsageError, which names the option, for another form and for sizes that cannot
// be decoded to.
Size ParseSize(const std::string& option, const std::string& text);

}  // namespace Moravel::Play
