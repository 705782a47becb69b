#include "serve/OwnAddress.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <memory>

namespace Moravel::Play {

namespace {

std::string FirstOfThisMachine() {
  ifaddrs* all = nullptr;
  if (::getifaddrs(&all) != 0)
    return "127.0.0.1";
  const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> holder(all, &::freeifaddrs);
  for (const ifaddrs* each = all; each != nullptr; each = each->ifa_next) {
    if (each->ifa_addr == nullptr || each->ifa_addr->sa_family != AF_INET ||
        (each->ifa_flags & IFF_LOOPBACK) != 0 || (each->ifa_flags & IFF_UP) == 0)
      continue;
    char text[INET_ADDRSTRLEN];
    const auto* const address = reinterpret_cast<const sockaddr_in*>(each->ifa_addr);
    if (::inet_ntop(AF_INET, &address->sin_addr, text, sizeof text) != nullptr)
      return text;
  }
  return "127.0.0.1";
}

}  // namespace

std::string ReachableAddress(const std::string& listening) {
  if (listening == "0.0.0.0" || listening == "::")
    return FirstOfThisMachine();
  return listening.find(':') == std::string::npos ? listening : '[' + listening + ']';
}

}  // namespace Moravel::Play
