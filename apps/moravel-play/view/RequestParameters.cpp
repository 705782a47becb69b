#include "view/RequestParameters.h"

#include <algorithm>
#include <charconv>

namespace Moravel::Play {

namespace {

constexpr size_t kMaxName = 64;

[[noreturn]] void Refuse(const char* name, const std::string& right) {
  throw BadRequest(std::string("\"") + name + "\" must be " + right);
}

bool IsOfName(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-';
}

}  // namespace

int64_t NumberParameter(const HttpRequest& request, const char* name, int64_t least, int64_t most) {
  const std::string text = request.Argument(name).value_or("");
  int64_t number = 0;
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, number);
  if (error != std::errc() || end != last || number < least || number > most)
    Refuse(name, "a number from " + std::to_string(least) + " to " + std::to_string(most));
  return number;
}

size_t WordParameter(const HttpRequest& request, const char* name,
                     std::initializer_list<std::string_view> words) {
  const auto word = request.Argument(name);
  const auto found = word ? std::find(words.begin(), words.end(), *word) : words.end();
  if (found != words.end())
    return static_cast<size_t>(found - words.begin());
  std::string all;
  for (const std::string_view each : words)
    all += (all.empty() ? "" : ", ") + std::string(each);
  Refuse(name, "one of " + all);
}

std::string NameParameter(const HttpRequest& request, const char* name) {
  std::string text = request.Argument(name).value_or("");
  if (text.empty() || text.size() > kMaxName || !std::all_of(text.begin(), text.end(), IsOfName))
    Refuse(name, "made of 1 to 64 letters, digits and dashes");
  return text;
}

}  // namespace Moravel::Play
