#include "storage-server/Request.h"

#include <netdb.h>
#include <sys/socket.h>

namespace Moravel::Player {

std::string Request::Client() const {
  const sockaddr* const address =
      ::MHD_get_connection_info(connection_, MHD_CONNECTION_INFO_CLIENT_ADDRESS)->client_addr;
  const bool ipv6 = address->sa_family == AF_INET6;
  char host[NI_MAXHOST], port[NI_MAXSERV];
  if ((!ipv6 && address->sa_family != AF_INET) ||
      ::getnameinfo(address, ipv6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in), host, sizeof host,
                    port, sizeof port, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    return {};
  }
  return (ipv6 ? '[' + std::string(host) + ']' : std::string(host)) + ':' + port;
}

}  // namespace Moravel::Player
