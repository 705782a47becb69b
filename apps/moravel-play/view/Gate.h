#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "view/LoopbackServer.h"

namespace Moravel::Play {

// Lets in the page and nobody else: who does not know the address that was printed, and pages of
// other origins that try it through the user's browser. Constant; any thread may use it.
class Gate {
 public:
  // With a fresh token of 128 bits. Throws std::runtime_error when the system has no randomness.
  Gate();

  // Of the page, with the slash behind the token.
  std::string Address(uint16_t port) const;

  // What the request asks for, the path behind the token ("picture"); nothing for strangers.
  std::optional<std::string> Admit(const HttpRequest& request, uint16_t port) const;

 private:
  const std::string token_;
};

}  // namespace Moravel::Play
