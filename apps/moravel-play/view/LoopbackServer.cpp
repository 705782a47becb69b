#include "view/LoopbackServer.h"

#include <microhttpd.h>

#include <exception>
#include <stdexcept>

#include "storage-server/Listening.h"

namespace Moravel::Play {

namespace {

// A browser has six connections to a server; those of strangers are fewer, but for what is being
// closed.
constexpr unsigned kMaxConnections = 256;
constexpr unsigned kIdleSeconds = 60;

std::optional<std::string> Value(MHD_Connection* connection, MHD_ValueKind kind, const char* name) {
  const char* value = nullptr;
  size_t size = 0;
  if (::MHD_lookup_connection_value_n(connection, kind, name, std::string_view(name).size(), &value,
                                      &size) != MHD_YES)
    return std::nullopt;
  return value == nullptr ? std::string() : std::string(value, size);
}

// The body stays where it is and goes with the response.
MHD_Result Send(MHD_Connection* connection, HttpAnswer answer) {
  const auto destroy = [](MHD_Response* response) { ::MHD_destroy_response(response); };
  auto body = std::make_unique<std::string>(std::move(answer.body));
  const std::unique_ptr<MHD_Response, decltype(destroy)> response(
      ::MHD_create_response_from_buffer_with_free_callback_cls(
          body->size(), body->data(), [](void* owner) { delete static_cast<std::string*>(owner); },
          body.get()),
      destroy);
  if (!response)
    return MHD_NO;
  static_cast<void>(body.release());  // the response destroys it
  ::MHD_add_response_header(response.get(), MHD_HTTP_HEADER_CONTENT_TYPE, answer.type.c_str());
  for (const auto& [name, value] : answer.headers)
    ::MHD_add_response_header(response.get(), name.c_str(), value.c_str());
  return ::MHD_queue_response(connection, answer.status, response.get());
}

}  // namespace

std::optional<std::string> HttpRequest::Header(const char* name) const {
  return Value(connection_, MHD_HEADER_KIND, name);
}

std::optional<std::string> HttpRequest::Argument(const char* name) const {
  return Value(connection_, MHD_GET_ARGUMENT_KIND, name);
}

void LoopbackServer::Stopper::operator()(MHD_Daemon* daemon) const {
  ::MHD_stop_daemon(daemon);
}

struct LoopbackServer::Callbacks {
  static MHD_Result Answer(void* self, MHD_Connection* connection, const char* path,
                           const char* method, const char*, const char*, size_t* uploaded,
                           void** request) {
    // The first call is for the header alone; a body is thrown away.
    if (*request == nullptr || *uploaded != 0) {
      *request = self;
      *uploaded = 0;
      return MHD_YES;
    }
    auto& server = *static_cast<LoopbackServer*>(self);
    HttpAnswer answer = server.Answer(HttpRequest(connection, path), method);
    if (answer.status != MHD_HTTP_FORBIDDEN && answer.status != MHD_HTTP_METHOD_NOT_ALLOWED)
      server.strangers_.Leave(connection);
    return Send(connection, std::move(answer));
  }
};

LoopbackServer::LoopbackServer(uint16_t port, Handler handler) : handler_(std::move(handler)) {
  Player::Descriptor listening = Player::ListenOnTcp("127.0.0.1", port);
  port_ = Player::PortOf(listening);
  // The daemon owns the socket from here on.
  daemon_.reset(::MHD_start_daemon(
      MHD_USE_THREAD_PER_CONNECTION | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_POLL, 0, nullptr,
      nullptr, &Callbacks::Answer, this, MHD_OPTION_LISTEN_SOCKET, listening.Release(),
      MHD_OPTION_CONNECTION_LIMIT, kMaxConnections, MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds,
      MHD_OPTION_NOTIFY_CONNECTION, &Player::Strangers::Notify, &strangers_, MHD_OPTION_END));
  if (!daemon_)
    throw std::runtime_error("the page's server cannot start its threads");
}

LoopbackServer::~LoopbackServer() = default;

HttpAnswer LoopbackServer::Answer(const HttpRequest& request,
                                  std::string_view method) const noexcept {
  try {
    if (method != MHD_HTTP_METHOD_GET)
      return {.status = MHD_HTTP_METHOD_NOT_ALLOWED, .headers = {{"Allow", "GET"}}};
    return handler_(request);
  } catch (const std::exception& error) {
    return {.status = MHD_HTTP_INTERNAL_SERVER_ERROR, .body = error.what()};
  }
}

}  // namespace Moravel::Play
