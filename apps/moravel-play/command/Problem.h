#pragma once

#include <string>

namespace Moravel::Play {

// Tells the user on standard error what went wrong: "moravel-play: ", the text, in one line.
// Any thread may call it.
void PrintProblem(const std::string& text);
// The same for want of memory; takes none.
void PrintOutOfMemory();

}  // namespace Moravel::Play
