#pragma once

#include <string_view>

namespace Moravel::Player {

// Whether a numeric address, or "localhost", is of this machine alone.
bool IsLoopback(std::string_view address);

// The address in the value of a Host header (RFC 9110, section 7.2): without port and brackets.
std::string_view AddressOfHost(std::string_view host);

}  // namespace Moravel::Player
