#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

// What --help, the manual page and the completion of the shell are made of: one source for all.
namespace Moravel::Play {

struct Example {
  const char* line;  // as it is typed
  const char* what;  // it does: "plays ..."
};

// What is said of a command beside its options.
struct CommandText {
  const char* name;                     // "probe"
  const char* arguments;                // "TRACK... [OPTION]..."
  const char* summary;                  // "tells what a track is"
  std::vector<const char*> paragraphs;  // of any length, without line ends
  std::vector<Example> examples;
  std::vector<std::pair<int, const char*>> exitCodes;
};

struct OptionText {
  std::string group;
  std::string names;  // "-q, --quiet"
  std::string value;  // "FILE", empty for a flag
  std::string description;
  std::vector<std::string> choices;  // all values, where they are few
};

struct CommandPage {
  const CommandText& text;
  std::vector<OptionText> options;  // those of a group stand together
};

// For a terminal of 80 columns.
std::string ToHelp(const CommandPage& page);
// "  probe   tells what a track is"
std::string ToHelpLine(const CommandText& text);

// A part of the manual page (roff, man macros), which ManPageHead and ManPageFoot complete.
std::string ToManSection(const CommandPage& page);
std::string ManPageHead(const std::vector<const CommandText*>& commands);
std::string ManPageFoot();

// A part of a function for bash, which BashCompletionHead and BashCompletionFoot complete.
std::string ToBashCompletion(const CommandPage& page);
std::string BashCompletionHead(const std::vector<const CommandText*>& commands);
std::string BashCompletionFoot();

}  // namespace Moravel::Play
