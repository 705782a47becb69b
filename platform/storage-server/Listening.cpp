#include "storage-server/Listening.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace Moravel::Player {

namespace {

constexpr int kBacklog = 1024;

Descriptor Listen(int family, const sockaddr* address, socklen_t length, const std::string& name) {
  Descriptor result(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  if (family != AF_UNIX) {
    ::setsockopt(result.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    ::setsockopt(result.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // for its connections
  }
  if (!result || ::bind(result.Get(), address, length) != 0 ||
      ::listen(result.Get(), kBacklog) != 0) {
    throw std::runtime_error("cannot listen on " + name + ": " +
                             std::generic_category().message(errno));
  }
  return result;
}

}  // namespace

Descriptor ListenOnTcp(const std::string& address, uint16_t port) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const std::string portText = std::to_string(port);
  if (const int error = ::getaddrinfo(address.c_str(), portText.c_str(), &hints, &found)) {
    throw std::runtime_error("storage server: '" + address + "' is no numeric IPv4 or IPv6 " +
                             "address: " + ::gai_strerror(error));
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> holder(found, &::freeaddrinfo);
  return Listen(found->ai_family, found->ai_addr, found->ai_addrlen, address + ":" + portText);
}

Descriptor ListenOnUnixDomainSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw std::runtime_error("storage server: the path of a unix domain socket has at most " +
                             std::to_string(sizeof address.sun_path - 1) + " bytes: " + path);
  }
  path.copy(address.sun_path, path.size());
  return Listen(AF_UNIX, reinterpret_cast<const sockaddr*>(&address), sizeof address, path);
}

uint16_t PortOf(const Descriptor& listening) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  ::getsockname(listening.Get(), reinterpret_cast<sockaddr*>(&address), &length);
  switch (address.ss_family) {
    case AF_INET:
      return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    case AF_INET6:
      return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    default:
      return 0;
  }
}

}  // namespace Moravel::Player
