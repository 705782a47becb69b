#include "view/Gate.h"

#include <sys/random.h>

#include <array>
#include <stdexcept>

namespace Moravel::Play {

namespace {

std::string MakeToken() {
  std::array<unsigned char, 16> bytes;
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
    throw std::runtime_error("the system gives no random numbers");
  std::string token;
  for (const unsigned char byte : bytes) {
    for (const int digit : {byte >> 4, byte & 15})
      token += "0123456789abcdef"[digit];
  }
  return token;
}

// Takes as long for every text of the same length.
bool AreEqual(std::string_view a, std::string_view b) {
  if (a.size() != b.size())
    return false;
  unsigned difference = 0;
  for (size_t i = 0; i < a.size(); ++i)
    difference |= static_cast<unsigned char>(a[i]) ^ static_cast<unsigned char>(b[i]);
  return difference == 0;
}

// A name that leads to this machine by the ways of somebody else is not one of ours.
bool IsOurHost(const std::string& host, uint16_t port) {
  const std::string suffix = ":" + std::to_string(port);
  return host == "127.0.0.1" + suffix || host == "localhost" + suffix;
}

}  // namespace

Gate::Gate() : token_(MakeToken()) {}

std::string Gate::Address(uint16_t port) const {
  return "http://127.0.0.1:" + std::to_string(port) + "/" + token_ + "/";
}

std::optional<std::string> Gate::Admit(const HttpRequest& request, uint16_t port) const {
  const std::string host = request.Header("Host").value_or("");
  if (!IsOurHost(host, port))
    return std::nullopt;
  const std::string ours = "http://" + host;
  if (request.Header("Origin").value_or(ours) != ours)
    return std::nullopt;
  const std::string site = request.Header("Sec-Fetch-Site").value_or("none");
  if (site != "none" && site != "same-origin")
    return std::nullopt;
  std::string_view path = request.Path();
  if (path.size() < token_.size() + 2 || path.front() != '/' || path[token_.size() + 1] != '/' ||
      !AreEqual(path.substr(1, token_.size()), token_))
    return std::nullopt;
  return std::string(path.substr(token_.size() + 2));
}

}  // namespace Moravel::Play
