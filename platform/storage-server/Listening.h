#pragma once

#include <cstdint>
#include <string>

#include "storage-server/Descriptor.h"

// Listening stream sockets. Failures are std::runtime_error, which names the address and the
// reason.
namespace Moravel::Player {

// `address` is a numeric IPv4 or IPv6 address, port 0 takes a free one. Connections send small
// segments at once.
Descriptor ListenOnTcp(const std::string& address, uint16_t port);

// Makes the socket's file, which must not exist; it is the caller's to remove.
Descriptor ListenOnUnixDomainSocket(const std::string& path);

// The port of a TCP socket, 0 for others.
uint16_t PortOf(const Descriptor& listening);

}  // namespace Moravel::Player
