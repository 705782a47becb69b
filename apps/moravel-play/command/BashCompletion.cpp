#include "command/CommandPage.h"

namespace Moravel::Play {

namespace {

std::string Join(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words)
    text += (text.empty() ? "" : " ") + word;
  return text;
}

// "-q|--quiet", "-q --quiet"
std::string NamesWith(const OptionText& option, const char* separator) {
  std::string names = option.names;
  const size_t comma = names.find(", ");
  return comma == std::string::npos ? names : names.replace(comma, 2, separator);
}

// What completes the value of the option; nothing where anything goes.
std::string Words(const OptionText& option) {
  if (!option.choices.empty())
    return "compgen -W '" + Join(option.choices) + "' -- \"$word\"";
  return option.value == "DIR"    ? "compgen -d -- \"$word\""
         : option.value == "FILE" ? "compgen -f -- \"$word\""
                                  : "";
}

}  // namespace

std::string BashCompletionHead(const std::vector<const CommandText*>& commands) {
  std::vector<std::string> names = {"help"};
  for (const CommandText* command : commands)
    names.emplace_back(command->name);
  return "# Completion of moravel-play for bash.\n"
         "_moravel_play() {\n"
         "  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]}\n"
         "  local command=play commands='" +
         Join(names) +
         "' options=\n"
         "  [[ \" $commands \" != *\" ${COMP_WORDS[1]} \"* ]] || command=${COMP_WORDS[1]}\n"
         "  case $command in\n"
         "    help) mapfile -t COMPREPLY < <(compgen -W \"$commands\" -- \"$word\"); return ;;\n";
}

std::string ToBashCompletion(const CommandPage& page) {
  std::vector<std::string> names;
  std::string values, freeValues;
  for (const OptionText& option : page.options) {
    names.push_back(NamesWith(option, " "));
    const std::string pattern = NamesWith(option, "|");
    if (const std::string words = Words(option); !words.empty())
      values += "        " + pattern + ") mapfile -t COMPREPLY < <(" + words + "); return ;;\n";
    else if (!option.value.empty())
      freeValues += (freeValues.empty() ? "        " : "|") + pattern;
  }
  if (!freeValues.empty())
    freeValues += ") return ;;\n";
  return "    " + std::string(page.text.name) + ")\n      options='" + Join(names) +
         "'\n      case $before in\n" + values + freeValues + "      esac ;;\n";
}

std::string BashCompletionFoot() {
  return "  esac\n"
         "  if [[ $word == -* ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$word\")\n"
         "  else\n"
         "    ((COMP_CWORD > 1)) || mapfile -t COMPREPLY < <(compgen -W \"$commands\" -- "
         "\"$word\")\n"
         "    mapfile -t -O ${#COMPREPLY[@]} COMPREPLY < <(compgen -d -- \"$word\"\n"
         "      compgen -f -X '!*.[AaMm][VvOoPp4][IiVv4]' -- \"$word\")  # .avi .mov .mp4 .m4v\n"
         "  fi\n"
         "}\n"
         "complete -o filenames -F _moravel_play moravel-play\n";
}

}  // namespace Moravel::Play
