#pragma once

#include <microhttpd.h>

#include <string>
#include <string_view>

namespace Moravel::Player {

// A request of a client, whose head has come. A view of the daemon's own, for as long as it calls.
class Request {
 public:
  Request(MHD_Connection* connection, const char* method, const char* path)
      : connection_(connection), method_(method), path_(path) {}

  MHD_Connection* Connection() const { return connection_; }
  std::string_view Method() const { return method_; }
  std::string_view Path() const { return path_; }
  // The value of a header, null without it.
  const char* operator[](const char* header) const {
    return ::MHD_lookup_connection_value(connection_, MHD_HEADER_KIND, header);
  }

  // "127.0.0.1:49152", "[::1]:49152"; empty on a unix domain socket.
  std::string Client() const;

 private:
  MHD_Connection* const connection_;
  const std::string_view method_;
  const std::string_view path_;
};

}  // namespace Moravel::Player
