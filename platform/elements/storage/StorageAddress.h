#pragma once

#include <curl/curl.h>

#include <cstdint>
#include <memory>
#include <string>

namespace qel {

struct CurlUrlCleanup {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using CurlUrl = std::unique_ptr<CURLU, CurlUrlCleanup>;

// Where a storage server listens. Immutable.
class StorageAddress {
 public:
  // `address` is a host name or an IP literal (IPv6 without brackets, maybe with its interface:
  // fe80::1%eth0) and nothing else, `port` is 1 to 65535. When `unixDomainSocket` is not empty the
  // server is reached through it, and address and port count for nothing. Throws QELRuntimeError,
  // which names the value that is wrong.
  StorageAddress(std::string address, int64_t port, std::string unixDomainSocket);

  const std::string& UnixDomainSocket() const { return unixDomainSocket_; }
  // Of the interface that a link-local address is reached through, else 0.
  unsigned InterfaceIndex() const { return interface_; }

  // "ADDRESS:PORT:Tn", as the track stands in messages.
  std::string TrackName(int64_t trackId) const;
  // http://ADDRESS:PORT/tracks/n
  CurlUrl TrackUrl(int64_t trackId) const;

 private:
  std::string host_;  // IPv6 in brackets
  std::string zone_;  // the name of the interface
  unsigned interface_ = 0;
  std::string port_;
  std::string unixDomainSocket_;
};

}  // namespace qel
