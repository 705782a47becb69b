#include "elements/storage/StorageAddress.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <sys/un.h>

#include <algorithm>
#include <new>
#include <string_view>

#include "qel/WorkflowStepImplementation.h"
#include "qelCore/OutOfMemory.h"
#include "qelCore/Printable.h"

namespace qel {

namespace {

constexpr size_t kMaxHostName = 253;  // RFC 1035

bool IsHostName(std::string_view text) {
  const auto isAllowed = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_';
  };
  return !text.empty() && text.size() <= kMaxHostName && text.front() != '-' &&
         text.front() != '.' && std::all_of(text.begin(), text.end(), isAllowed);
}

bool IsIpv6(const std::string& text) {
  in6_addr ignored{};
  return text.find('\0') == std::string::npos && inet_pton(AF_INET6, text.c_str(), &ignored) == 1;
}

std::string HostOf(const std::string& address) {
  if (IsHostName(address))
    return address;
  if (IsIpv6(address))
    return "[" + address + "]";
  throw QELRuntimeError(QEL_TEXT("\"tcp_address\" \""
                                 << Printable(address)
                                 << "\" is neither a host name nor an IP address (no scheme, "
                                    "user, port or path)"));
}

void Set(CURLU* url, CURLUPart part, const std::string& value) {
  const CURLUcode result = curl_url_set(url, part, value.c_str(), 0);
  if (result == CURLUE_OUT_OF_MEMORY)
    FailOutOfMemory();
  if (result != CURLUE_OK) {
    throw QELRuntimeError(
        QEL_TEXT("\"" << Printable(value)
                      << "\" cannot be part of a storage address: " << curl_url_strerror(result)));
  }
}

}  // namespace

StorageAddress::StorageAddress(std::string address, int64_t port, std::string unixDomainSocket)
    : unixDomainSocket_(std::move(unixDomainSocket)) {
  if (!unixDomainSocket_.empty()) {
    if (unixDomainSocket_.size() >= sizeof(sockaddr_un::sun_path) ||
        unixDomainSocket_.find('\0') != std::string::npos) {
      throw QELRuntimeError(QEL_TEXT("\"unix_domain_socket\" \""
                                     << Printable(unixDomainSocket_) << "\" is no path of at most "
                                     << sizeof(sockaddr_un::sun_path) - 1 << " bytes"));
    }
    host_ = "localhost";
    port_ = "80";
    return;
  }
  const size_t zone = std::min(address.find('%'), address.size());
  if (IsIpv6(address.substr(0, zone)) && zone < address.size() &&
      IsHostName(std::string_view(address).substr(zone + 1))) {
    zone_ = address.substr(zone + 1);
    address.resize(zone);
    interface_ = if_nametoindex(zone_.c_str());
    if (interface_ == 0)
      throw QELRuntimeError(
          QEL_TEXT("\"tcp_address\": this machine has no interface \"" << zone_ << "\""));
  }
  host_ = HostOf(address);
  if (port < 1 || port > 65535)
    throw QELRuntimeError(QEL_TEXT("\"tcp_port\" " << port << " is not from 1 to 65535"));
  port_ = std::to_string(port);
}

std::string StorageAddress::TrackName(int64_t trackId) const {
  const std::string track = ":T" + std::to_string(trackId);
  if (!unixDomainSocket_.empty())
    return unixDomainSocket_ + track;
  std::string host = host_;
  if (!zone_.empty())
    host.insert(host.size() - 1, "%" + zone_);
  return host + ":" + port_ + track;
}

CurlUrl StorageAddress::TrackUrl(int64_t trackId) const {
  CurlUrl url(curl_url());
  if (!url)
    FailOutOfMemory();
  Set(url.get(), CURLUPART_SCHEME, "http");
  Set(url.get(), CURLUPART_HOST, host_);
  Set(url.get(), CURLUPART_PORT, port_);
  Set(url.get(), CURLUPART_PATH, "/tracks/" + std::to_string(trackId));
  return url;
}

}  // namespace qel
