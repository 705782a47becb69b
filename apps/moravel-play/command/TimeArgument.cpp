#include "command/TimeArgument.h"

#include <cstdio>
#include <optional>
#include <string_view>
#include <vector>

#include "command/TextParts.h"
#include "command/UsageError.h"

namespace Moravel::Play {

namespace {

constexpr int64_t kMicroseconds = 1'000'000;
constexpr int64_t kMaxSeconds = 1'000'000'000;
constexpr int64_t kMaxSamples = 1'000'000'000'000;
constexpr int64_t kSixty = 60;

// Digits, perhaps with a fraction, of which microseconds count: "2.5", ".04", "7".
std::optional<int64_t> ParseMicroseconds(std::string_view text) {
  const size_t point = text.find('.');
  std::string fraction(point == std::string_view::npos ? "" : text.substr(point + 1));
  const std::string_view whole = text.substr(0, point);
  if ((point != std::string_view::npos && !AreDigits(fraction)) ||
      (whole.empty() && fraction.empty()))
    return std::nullopt;
  fraction.resize(6, '0');
  const auto seconds = whole.empty() ? 0 : ParseDigits(whole, kMaxSeconds);
  const auto rest = ParseDigits(fraction, kMicroseconds);
  return seconds && rest ? std::optional(*seconds * kMicroseconds + *rest) : std::nullopt;
}

std::vector<std::string_view> SplitAtColons(std::string_view text) {
  constexpr size_t kMaxParts = 5;  // one more than any form has
  std::vector<std::string_view> parts;
  for (size_t colon = text.find(':'); parts.size() < kMaxParts && colon != std::string_view::npos;
       colon = text.find(':')) {
    parts.push_back(text.substr(0, colon));
    text.remove_prefix(colon + 1);
  }
  parts.push_back(text);
  return parts;
}

// Hours, minutes and seconds, or the last two, or the last one; below the first, at most 59.
std::optional<int64_t> ParseClock(const std::vector<std::string_view>& parts) {
  const auto last = ParseMicroseconds(parts.back());
  if (!last || (parts.size() > 1 && *last >= kSixty * kMicroseconds))
    return std::nullopt;
  int64_t seconds = 0;
  for (size_t i = 0; i + 1 < parts.size(); ++i) {
    const auto part = ParseDigits(parts[i], i == 0 ? kMaxSeconds / 3600 : kSixty - 1);
    if (!part)
      return std::nullopt;
    seconds = (seconds + *part) * kSixty;
  }
  return seconds * kMicroseconds + *last;
}

std::optional<TimeArgument> Parse(std::string_view text) {
  TimeArgument time;
  time.fromEnd = TakeCharacter(text, '-');
  if (TakeCharacter(text, '#')) {
    const auto samples = ParseDigits(text, kMaxSamples);
    time.form = TimeArgument::Form::Samples;
    time.samples = samples.value_or(0);
    return samples ? std::optional(time) : std::nullopt;
  }
  std::vector<std::string_view> parts = SplitAtColons(text);
  if (parts.size() == 1 && text.ends_with('s'))
    parts[0].remove_suffix(1);
  if (parts.size() == 4) {
    const auto pictures = ParseDigits(parts[3], kMaxSamples);
    if (!pictures || !AreDigits(parts[2]))
      return std::nullopt;
    time.form = TimeArgument::Form::TimeCode;
    time.samples = *pictures;
    parts.pop_back();
  }
  if (parts.size() > 3)
    return std::nullopt;
  const auto clock = ParseClock(parts);
  time.microseconds = clock.value_or(0);
  return clock ? std::optional(time) : std::nullopt;
}

// "62.5", without the zeros that say nothing.
std::string ToSeconds(int64_t microseconds) {
  std::string text = std::to_string(microseconds / kMicroseconds);
  if (microseconds % kMicroseconds != 0) {
    const std::string fraction = std::to_string(kMicroseconds + microseconds % kMicroseconds);
    text += '.' + fraction.substr(1, fraction.find_last_not_of('0'));
  }
  return text;
}

}  // namespace

std::string TimeArgument::ToString() const {
  const std::string sign = fromEnd ? "-" : "";
  if (form == Form::Samples)
    return sign + '#' + std::to_string(samples);
  if (form == Form::Seconds)
    return sign + ToSeconds(microseconds);
  const auto seconds = static_cast<long long>(microseconds / kMicroseconds);
  char text[96];
  std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld:%02lld", seconds / 3600,
                seconds / kSixty % kSixty, seconds % kSixty, static_cast<long long>(samples));
  return sign + text;
}

TimeArgument ParseTimeArgument(const std::string& option, const std::string& text) {
  const auto time = Parse(text);
  if (!time) {
    throw UsageError(option + " " + text +
                     ": must be seconds (62.5), 1:02.5, 00:01:02:12 (with pictures) or a sample "
                     "(#137), with a minus in front from the end");
  }
  return *time;
}

}  // namespace Moravel::Play
