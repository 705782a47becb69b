#include "command/CommandLine.h"

#include <algorithm>

namespace Moravel::Play {

namespace {

using orl::mv::logging::ILogger;

constexpr const char* kManSection = "--man-section";
constexpr const char* kBashCompletion = "--bash-completion-part";

// Asked for instead of running the command.
struct Asked {
  std::string text;
};

std::string NamesOf(const CLI::Option& option) {
  std::string names;
  for (const std::string& name : option.get_snames())
    names += (names.empty() ? "-" : ", -") + name;
  for (const std::string& name : option.get_lnames())
    names += (names.empty() ? "--" : ", --") + name;
  return names;
}

}  // namespace

CommandLine::CommandLine(const CommandText& text) : text_(text) {
  Group("");  // not shown
  app_.add_flag_callback(kManSection, [this] { throw Asked{ToManSection(Page())}; });
  app_.add_flag_callback(kBashCompletion, [this] { throw Asked{ToBashCompletion(Page())}; });
  Group("Help");
  app_.set_help_flag("-h,--help", "This text");
  app_.set_version_flag("-V,--version", "moravel-play " MORAVEL_PLAY_VERSION, "The version");
}

void CommandLine::AddPath(const char* names, std::filesystem::path& path, const char* typeName,
                          const char* description) {
  app_.add_option_function<std::string>(
          names,
          [&path, names](const std::string& name) {
            if (name.empty())
              throw UsageError(std::string(names) + ": the name must not be empty");
            path = name;
          },
          description)
      ->type_name(typeName);
}

void CommandLine::AddVerbosity(bool& quiet, ILogger::Level& level) {
  static const std::map<std::string, ILogger::Level> kLevels = {
      {"trace", ILogger::Level_Trace}, {"debug", ILogger::Level_Debug},
      {"info", ILogger::Level_Info},   {"warning", ILogger::Level_Warning},
      {"error", ILogger::Level_Error}, {"none", ILogger::Level_NoLog}};
  app_.add_flag("-q,--quiet", quiet, "Only problems: no progress, no report");
  app_.add_flag_function(
      "-v,--verbose",
      [&level](int64_t times) {
        level = times == 1   ? ILogger::Level_Info
                : times == 2 ? ILogger::Level_Debug
                             : ILogger::Level_Trace;
      },
      "More log lines; -vv and -vvv still more");
  AddChoice("--log-level", level, kLevels, "LEVEL",
            "Log lines from this level on: trace, debug, info, warning, error or none (warning)");
}

void CommandLine::CheckChoice(const std::string& option, const std::string& word,
                              const std::vector<std::string>& words) {
  if (std::find(words.begin(), words.end(), word) != words.end())
    return;
  std::string all;
  for (const std::string& each : words)
    all += (all.empty() ? "" : ", ") + each;
  throw UsageError(option + " " + word + ": must be one of " + all);
}

// Options as they were declared; those of all commands come last.
CommandPage CommandLine::Page() const {
  CommandPage page = {text_, {}};
  std::vector<OptionText> last;
  for (const CLI::Option* option : app_.get_options()) {
    if (option->get_positional() || option->get_group().empty())
      continue;
    const auto choices = choices_.find(option);
    const bool flag = option->get_expected_max() == 0;
    OptionText text = {option->get_group(), NamesOf(*option), flag ? "" : option->get_type_name(),
                       option->get_description(),
                       choices == choices_.end() ? std::vector<std::string>() : choices->second};
    (text.group == "Help" ? last : page.options).push_back(std::move(text));
  }
  page.options.insert(page.options.end(), last.begin(), last.end());
  return page;
}

std::optional<std::string> CommandLine::Read(int argc, const char* const* argv) {
  try {
    app_.parse(argc, argv);
    return std::nullopt;
  } catch (const Asked& asked) {
    return asked.text;
  } catch (const CLI::CallForHelp&) {
    return ToHelp(Page());
  } catch (const CLI::CallForVersion& version) {
    return std::string(version.what()) + "\n";
  } catch (const CLI::ParseError& error) {
    throw UsageError(std::string(error.what()) + " (see moravel-play help " + text_.name + ")");
  }
}

}  // namespace Moravel::Play
