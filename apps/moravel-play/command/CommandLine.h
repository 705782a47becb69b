#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "command/CommandPage.h"
#include "command/UsageError.h"
#include "logging/ILogger.h"

namespace Moravel::Play {

// The command line of one command: declare its options, then Read them. Each command has -h and
// --help, -V and --version; those who build the manual page and the completion ask it for its part
// with hidden options. An option goes to the last group that was named.
class CommandLine {
 public:
  explicit CommandLine(const CommandText& text);

  void Group(const char* name) { app_.option_defaults()->group(name); }

  // For everything that has no operation of its own below. The type name tells what to complete:
  // FILE, DIR.
  CLI::App& App() { return app_; }

  // A file or folder, which has a name.
  void AddPath(const char* names, std::filesystem::path& path, const char* typeName,
               const char* description);

  // One of several words, each for a value.
  template <typename Target, typename Value>
  void AddChoice(const char* names, Target& value, const std::map<std::string, Value>& choices,
                 const char* typeName, const char* description) {
    const std::vector<std::string> words = WordsOf(choices);
    CLI::Option* const option = app_.add_option_function<std::string>(
        names,
        [names, &value, choices, words](const std::string& word) {
          CheckChoice(names, word, words);
          value = choices.at(word);
        },
        description);
    option->type_name(typeName);
    choices_[option] = words;
  }

  // How much is told on the way: -q, --quiet; -v, --verbose (repeated: more); --log-level.
  void AddVerbosity(bool& quiet, orl::mv::logging::ILogger::Level& level);

  // Reads what the user typed, argv[0] aside. Returns a text when the user asked for that instead
  // of the command (help, version). Throws UsageError.
  std::optional<std::string> Read(int argc, const char* const* argv);

 private:
  template <typename Value>
  static std::vector<std::string> WordsOf(const std::map<std::string, Value>& choices) {
    std::vector<std::string> words;
    words.reserve(choices.size());
    for (const auto& [word, value] : choices)
      words.push_back(word);
    return words;
  }
  static void CheckChoice(const std::string& option, const std::string& word,
                          const std::vector<std::string>& words);
  CommandPage Page() const;

  const CommandText& text_;
  CLI::App app_;
  std::map<const CLI::Option*, std::vector<std::string>> choices_;
};

}  // namespace Moravel::Play
