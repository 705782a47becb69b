#include <algorithm>

#include "command/CommandPage.h"

namespace Moravel::Play {

namespace {

constexpr size_t kWidth = 79;  // a full line of 80 would make some terminals go on in the next one
constexpr size_t kIndent = 2;
constexpr size_t kDescriptionColumn = 28;

// The words in lines that fit, behind a first line that is begun already.
std::string Wrap(std::string line, std::string_view words, size_t column) {
  std::string text;
  bool fresh = true;  // no word of ours is in the line yet
  line.resize(std::max(column, line.size()), ' ');
  while (!words.empty()) {
    const std::string_view word = words.substr(0, words.find(' '));
    if (!fresh && line.size() + 1 + word.size() > kWidth) {
      text += line + '\n';
      line.assign(column, ' ');
      fresh = true;
    }
    line += (fresh ? "" : " ") + std::string(word);
    fresh = false;
    words.remove_prefix(std::min(words.size(), word.size() + 1));
  }
  return text + line + '\n';
}

std::string ToLines(const OptionText& option) {
  std::string names(kIndent, ' ');
  if (option.names.starts_with("--"))
    names += "    ";
  names += option.names + (option.value.empty() ? "" : " " + option.value);
  if (names.size() + 2 <= kDescriptionColumn)
    return Wrap(names, option.description, kDescriptionColumn);
  return names + '\n' + Wrap("", option.description, kDescriptionColumn);
}

}  // namespace

std::string ToHelpLine(const CommandText& text) {
  constexpr size_t kColumn = 10;
  return Wrap("  " + std::string(text.name), text.summary, kColumn);
}

std::string ToHelp(const CommandPage& page) {
  std::string help =
      Wrap("Usage: moravel-play", std::string(page.text.name) + ' ' + page.text.arguments, 20);
  for (const char* paragraph : page.text.paragraphs)
    help += '\n' + Wrap("", paragraph, 0);
  std::string group;
  for (const OptionText& option : page.options) {
    if (option.group != group)
      help += '\n' + option.group + ":\n";
    group = option.group;
    help += ToLines(option);
  }
  if (!page.text.examples.empty())
    help += "\nExamples:\n";
  for (const Example& example : page.text.examples)
    help += "  " + std::string(example.line) + '\n' + Wrap("", example.what, 6);
  if (!page.text.exitCodes.empty())
    help += "\nExit codes:\n";
  for (const auto& [code, meaning] : page.text.exitCodes)
    help += Wrap("  " + std::to_string(code), meaning, 6);
  return help;
}

}  // namespace Moravel::Play
