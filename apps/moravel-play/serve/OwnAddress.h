#pragma once

#include <string>

namespace Moravel::Play {

// What others write to reach a server that listens on that numeric address: the address, an IPv6
// one in brackets; for all addresses ("0.0.0.0", "::") the first one of this machine that is not a
// loopback address, if there is one.
std::string ReachableAddress(const std::string& listening);

}  // namespace Moravel::Play
