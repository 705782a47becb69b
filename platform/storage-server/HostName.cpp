#include "storage-server/HostName.h"

#include <arpa/inet.h>
#include <strings.h>

#include <string>

namespace Moravel::Player {

bool IsLoopback(std::string_view address) {
  const std::string name(address);
  in_addr ipv4{};
  in6_addr ipv6{};
  return ::strcasecmp(name.c_str(), "localhost") == 0 ||
         (::inet_pton(AF_INET, name.c_str(), &ipv4) == 1 &&
          ntohl(ipv4.s_addr) >> 24 == IN_LOOPBACKNET) ||
         (::inet_pton(AF_INET6, name.c_str(), &ipv6) == 1 && IN6_IS_ADDR_LOOPBACK(&ipv6));
}

std::string_view AddressOfHost(std::string_view host) {
  if (host.starts_with('[')) {
    const size_t end = host.find(']');
    return end != host.npos ? host.substr(1, end - 1) : host;
  }
  return host.substr(0, host.find(':'));
}

}  // namespace Moravel::Player
