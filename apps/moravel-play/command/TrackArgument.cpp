#include "command/TrackArgument.h"

#include <charconv>
#include <regex>

#include "command/Options.h"

namespace Moravel::Play {

namespace {

constexpr int64_t kMaxPort = 65535;

int64_t ParseNumber(const std::string& text, const std::string& digits, int64_t least, int64_t most,
                    const char* what) {
  int64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (error != std::errc() || number < least || number > most) {
    throw UsageError(text + ": the " + what + " must be between " + std::to_string(least) +
                     " and " + std::to_string(most));
  }
  return number;
}

}  // namespace

TrackArgument ParseTrackArgument(const std::string& text) {
  static const std::regex form(R"((?:\[([0-9A-Fa-f:.%]+)\]|([A-Za-z0-9._-]+)):(\d+):T(\d+))");
  static const std::regex bareIpv6(R"([0-9A-Fa-f]*:[0-9A-Fa-f:.]*:\d+:T\d+)");
  std::smatch match;
  if (std::regex_match(text, match, form)) {
    const int64_t port = ParseNumber(text, match[3], 1, kMaxPort, "port");
    const int64_t id = ParseNumber(text, match[4], 0, INT64_MAX, "track number");
    const std::string address = match[1].matched ? match[1] : match[2];
    return {text, Player::TrackId(Player::StorageId(address, port), id)};
  }
  if (std::regex_match(text, bareIpv6))
    throw UsageError(text + ": an IPv6 address must stand in brackets, as in [::1]:8080:T1");
  return {text, std::nullopt};
}

}  // namespace Moravel::Play
