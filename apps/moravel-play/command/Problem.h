#pragma once

#include <string>

namespace Moravel::Play {

// Tells the user on standard error what went wrong: "moravel-play: ", the text, in one line.
// Any thread may call it.
void PrintProblem(const std::string& text);
// Ends the program for want of memory, with one line and exit code 3: as its new-handler, from
// whatever thread and place (deleters and destructors among them). Takes no memory.
[[noreturn]] void EndOutOfMemory() noexcept;

}  // namespace Moravel::Play
