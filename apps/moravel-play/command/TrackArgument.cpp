#include "command/TrackArgument.h"

#include <algorithm>
#include <string_view>

#include "command/TextParts.h"
#include "command/UsageError.h"

namespace Moravel::Play {

namespace {

constexpr int64_t kMaxPort = 65535;
constexpr int64_t kHttpPort = 80;

bool IsMadeOf(std::string_view text, std::string_view punctuation, bool (*isLetter)(char)) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [&](char c) {
    return (c >= '0' && c <= '9') || isLetter(c) || punctuation.find(c) != std::string_view::npos;
  });
}

bool IsHexLetter(char c) {
  return (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool IsLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsHostName(std::string_view text) {
  return IsMadeOf(text, "._-", IsLetter);
}

// With the interface of a link-local one behind it: fe80::1%eth0.
bool IsIpv6(std::string_view text) {
  const size_t zone = text.find('%');
  return IsMadeOf(text.substr(0, zone), ":.", IsHexLetter) &&
         text.find(':') != std::string_view::npos &&
         (zone == std::string_view::npos || IsHostName(text.substr(zone + 1)));
}

int64_t InRange(const std::string& whole, std::string_view digits, int64_t least, int64_t most,
                const char* what) {
  const auto number = ParseDigits(digits, most);
  if (!number || *number < least) {
    throw UsageError(whole + ": the " + what + " must be between " + std::to_string(least) +
                     " and " + std::to_string(most));
  }
  return *number;
}

Player::TrackId MakeId(const std::string& whole, std::string_view address, std::string_view port,
                       std::string_view track) {
  if (address.starts_with('['))
    address = address.substr(1, address.size() - 2);
  const int64_t portNumber = port.empty() ? kHttpPort : InRange(whole, port, 1, kMaxPort, "port");
  return {Player::StorageId(std::string(address), portNumber),
          InRange(whole, track, 0, INT64_MAX, "track number")};
}

// A name, an IPv4 address, or an IPv6 address in brackets.
bool IsAddress(std::string_view text) {
  const bool bracketed = text.starts_with('[') && text.ends_with(']');
  return bracketed ? IsIpv6(text.substr(1, text.size() - 2)) : IsHostName(text);
}

std::optional<Player::TrackId> ParseShortForm(const std::string& text) {
  std::string_view track = text;
  const auto beforeTrack = TakeBeforeLast(track, ':');
  if (!beforeTrack || !TakeCharacter(track, 'T') || !AreDigits(track))
    return std::nullopt;
  std::string_view port = *beforeTrack;
  const auto address = TakeBeforeLast(port, ':');
  if (!address || !AreDigits(port))
    return std::nullopt;
  if (IsIpv6(*address))
    throw UsageError(text + ": an IPv6 address must stand in brackets, as in [::1]:8080:T1");
  return IsAddress(*address) ? std::optional(MakeId(text, *address, port, track)) : std::nullopt;
}

Player::TrackId ParseHttpForm(const std::string& text, std::string rest) {
  constexpr std::string_view kFolder = "/tracks/";
  constexpr std::string_view kZone = "%25";  // RFC 6874
  if (const size_t zone = rest.find(kZone); zone != std::string::npos)
    rest.replace(zone, kZone.size(), "%");
  const size_t folder = rest.find(kFolder);
  if (folder != std::string::npos) {
    const std::string_view track = std::string_view(rest).substr(folder + kFolder.size());
    const std::string_view server = std::string_view(rest).substr(0, folder);
    if (AreDigits(track) && IsAddress(server))
      return MakeId(text, server, "", track);
    std::string_view port = server;
    const auto address = TakeBeforeLast(port, ':');
    if (AreDigits(track) && address && IsAddress(*address) && AreDigits(port))
      return MakeId(text, *address, port, track);
  }
  throw UsageError(text +
                   ": a track of a server is http://ADDRESS:PORT/tracks/NUMBER or "
                   "ADDRESS:PORT:TNUMBER, as in 10.0.0.5:8080:T7");
}

}  // namespace

TrackArgument ParseTrackArgument(const std::string& text) {
  if (text.empty())
    throw UsageError("a TRACK must not be empty");
  if (text.starts_with("https://"))
    throw UsageError(text +
                     ": storage servers speak plain http: give http://ADDRESS:PORT/tracks/NUMBER");
  constexpr std::string_view kHttp = "http://";
  if (text.starts_with(kHttp))
    return {text, ParseHttpForm(text, text.substr(kHttp.size()))};
  return {text, ParseShortForm(text)};
}

}  // namespace Moravel::Play
