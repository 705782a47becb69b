#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct MHD_Connection;
struct MHD_Daemon;

#include "storage-server/Strangers.h"

namespace Moravel::Play {

// A GET request.
class HttpRequest {
 public:
  HttpRequest(MHD_Connection* connection, std::string_view path)
      : connection_(connection), path_(path) {}

  std::string_view Path() const { return path_; }
  // Empty when there is no such header or argument; an argument without a value is "".
  std::optional<std::string> Header(const char* name) const;
  std::optional<std::string> Argument(const char* name) const;

 private:
  MHD_Connection* const connection_;
  const std::string_view path_;
};

struct HttpAnswer {
  unsigned status = 200;
  std::string type = "text/plain; charset=utf-8";
  std::string body = {};
  std::vector<std::pair<std::string, std::string>> headers = {};
};

// An HTTP server on the loopback interface, for the browser of whoever runs the program. It has a
// thread for each connection, within a limit: an answer may be waited for. Other methods than GET
// get 405. Connections that got nothing but refusals make room for newer ones.
class LoopbackServer {
 public:
  // Called by several threads at once. What it throws becomes a 500.
  using Handler = std::function<HttpAnswer(const HttpRequest&)>;

  // Port 0 takes one that is free. Throws std::runtime_error, which names the port and the reason.
  LoopbackServer(uint16_t port, Handler handler);
  // Waits for the answers that are being made.
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  uint16_t Port() const { return port_; }

 private:
  struct Stopper {
    void operator()(MHD_Daemon* daemon) const;
  };

  struct Callbacks;

  HttpAnswer Answer(const HttpRequest& request, std::string_view method) const noexcept;

  const Handler handler_;
  uint16_t port_ = 0;
  Player::Strangers strangers_;
  std::unique_ptr<MHD_Daemon, Stopper> daemon_;  // the last: its threads use all of the above
};

}  // namespace Moravel::Play
