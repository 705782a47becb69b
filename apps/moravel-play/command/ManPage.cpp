#include "command/CommandPage.h"

namespace Moravel::Play {

namespace {

// Text as roff takes it: no escapes, no requests at the beginning of a line, hyphens that can be
// searched for and copied.
std::string Roff(std::string_view text) {
  std::string roff = text.starts_with('.') || text.starts_with('\'') ? "\\&" : "";
  for (const char c : text)
    roff += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
  return roff;
}

std::string ToParagraph(const OptionText& option) {
  const std::string value = option.value.empty() ? "" : " \\fI" + Roff(option.value) + "\\fR";
  return ".TP\n\\fB" + Roff(option.names) + "\\fR" + value + '\n' + Roff(option.description) + '\n';
}

}  // namespace

std::string ManPageHead(const std::vector<const CommandText*>& commands) {
  std::string page =
      ".TH MORAVEL\\-PLAY 1 \"\" \"moravel\\-play " MORAVEL_PLAY_VERSION
      "\" \"User Commands\"\n"
      ".SH NAME\nmoravel\\-play \\- motion\\-JPEG tracks of storage servers, without "
      "a screen\n.SH SYNOPSIS\n";
  for (const CommandText* command : commands) {
    const std::string name = command->name;
    page += ".B moravel\\-play " + (name == "play" ? "\\fR[\\fBplay\\fR]" : Roff(name)) + "\n" +
            Roff(command->arguments) + "\n.br\n";
  }
  return page + ".B moravel\\-play help\n[COMMAND]\n.SH COMMANDS\n";
}

std::string ToManSection(const CommandPage& page) {
  const CommandText& text = page.text;
  std::string section =
      ".SS \"moravel\\-play " + Roff(text.name) + ' ' + Roff(text.arguments) + "\"\n";
  for (const char* paragraph : text.paragraphs)
    section += ".PP\n" + Roff(paragraph) + '\n';
  std::string group;
  for (const OptionText& option : page.options) {
    if (option.group != group)
      section += ".PP\n\\fI" + Roff(option.group) + ":\\fR\n";
    group = option.group;
    section += ToParagraph(option);
  }
  if (!text.examples.empty())
    section += ".PP\n\\fIExamples:\\fR\n";
  for (const Example& example : text.examples)
    section += ".TP\n\\fB" + Roff(example.line) + "\\fR\n" + Roff(example.what) + '\n';
  if (!text.exitCodes.empty())
    section += ".PP\n\\fIExit codes:\\fR\n";
  for (const auto& [code, meaning] : text.exitCodes)
    section += ".TP 6\n" + std::to_string(code) + '\n' + Roff(meaning) + '\n';
  return section;
}

std::string ManPageFoot() {
  return ".SH ENVIRONMENT\n.TP\n.B NO_COLOR\nwhen it is set and not empty, log lines have no "
         "colours.\n";
}

}  // namespace Moravel::Play
