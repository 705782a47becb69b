#include "support/FaultyServer.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <string_view>

#include "storage-server/Listening.h"

namespace Moravel::Test {

namespace {

using Player::Descriptor;

bool Send(const Descriptor& socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0)
      return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

// What comes until it is complete; empty when the peer is gone before.
std::string Receive(const Descriptor& socket, bool (*isComplete)(const std::string&)) {
  std::string text;
  char bytes[65536];
  while (!isComplete(text)) {
    const ssize_t received = ::recv(socket.Get(), bytes, sizeof bytes, 0);
    if (received <= 0)
      return {};
    text.append(bytes, static_cast<size_t>(received));
  }
  return text;
}

bool IsRequest(const std::string& text) {
  return text.ends_with("\r\n\r\n");
}

bool IsAnswer(const std::string& text) {
  const std::string length = "\r\nContent-Length: ";
  const size_t end = text.find("\r\n\r\n"), at = text.find(length);
  return end != text.npos && text.size() == end + 4 + std::stoul(text.substr(at + length.size()));
}

// Takes the line of that name, with its line end, out of the header.
std::string Cut(std::string& header, const std::string& name) {
  const size_t at = header.find("\r\n" + name + ": ");
  if (at == header.npos)
    return {};
  const size_t end = header.find("\r\n", at + 2);
  const std::string line = header.substr(at + 2, end - at);
  header.erase(at + 2, end - at);
  return line;
}

void Spoil(std::string& header, std::string& body, const Fault& fault) {
  if (fault.status != 0) {
    header.replace(9, 3, std::to_string(fault.status));
    if (fault.status != 200 && fault.status != 206) {
      body.clear();
      Cut(header, "Content-Range");
    }
  }
  const int64_t size = static_cast<int64_t>(body.size()) + fault.bodyExcess;
  body.resize(static_cast<size_t>(std::max<int64_t>(0, size)), '!');
  const auto set = [&header](const std::string& name, const std::string& value) {
    Cut(header, name);
    header += value.empty() ? "" : name + ": " + value + "\r\n";
  };
  set("Content-Length", std::to_string(body.size()));
  if (!fault.contentRange.empty())
    set("Content-Range", fault.contentRange);
  if (fault.etag) {
    set("ETag", *fault.etag);
    Cut(header, "Last-Modified");
  }
  header += fault.headerLines + "\r\n";
}

}  // namespace

void FaultyServer::SetFaults(FaultChooser chooser) {
  const std::lock_guard lock(access_);
  chooser_ = std::move(chooser);
}

void FaultyServer::SetFault(const Fault& fault, int requests) {
  SetFaults([fault, requests](uint64_t) mutable {
    return requests > 0 && requests-- > 0 ? fault : Fault{};
  });
}

void FaultyServer::ReleaseStalls() {
  const std::lock_guard lock(access_);
  ++releases_;
  released_.notify_all();
}

void FaultyServer::SetListening(bool listening) {
  if (listening == acceptor_.joinable())
    return;
  {
    const std::lock_guard lock(access_);
    closing_ = !listening;
    released_.notify_all();
  }
  if (listening) {
    listening_ = Player::ListenOnTcp("127.0.0.1", port_);
    port_ = Player::PortOf(listening_);
    acceptor_ = std::thread([this] { Accept(); });
    return;
  }
  ::shutdown(listening_.Get(), SHUT_RDWR);
  acceptor_.join();
  listening_ = Descriptor();
  for (const Connection& connection : connections_)
    ::shutdown(connection.socket.Get(), SHUT_RDWR);
  connections_.clear();
}

void FaultyServer::Accept() {
  // Fails when the listening socket is shut down.
  while (Descriptor socket{::accept4(listening_.Get(), nullptr, nullptr, SOCK_CLOEXEC)}) {
    connections_.remove_if([](const Connection& connection) { return connection.done.load(); });
    Connection& connection = connections_.emplace_back(std::move(socket));
    connection.thread = std::jthread([this, &connection] {
      Serve(connection.socket);
      ::shutdown(connection.socket.Get(), SHUT_RDWR);
      connection.done = true;
    });
  }
}

// False when the client is gone.
bool FaultyServer::Stall(const Descriptor& client, const Fault& fault, uint64_t releases) {
  const std::chrono::milliseconds step(fault.isFlood ? 0 : 5);
  const auto end = std::chrono::steady_clock::now() + fault.late;
  std::unique_lock lock(access_);
  while (std::chrono::steady_clock::now() < end) {
    if (released_.wait_for(lock, step, [&] { return closing_ || releases_ != releases; }))
      return true;
    lock.unlock();
    if (!Send(client, fault.drip))
      return false;
    lock.lock();
  }
  return true;
}

Descriptor FaultyServer::ConnectBehind() const {
  Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_in address{AF_INET, htons(server_.Port()), {htonl(INADDR_LOOPBACK)}, {}};
  ::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  return socket;
}

void FaultyServer::Serve(const Descriptor& client) {
  const Descriptor server = ConnectBehind();
  for (std::string request; !(request = Receive(client, IsRequest)).empty();) {
    std::unique_lock lock(access_);
    const uint64_t number = requests_++, releases = releases_;
    Fault fault = chooser_ ? chooser_(number) : Fault{};
    lock.unlock();
    if (fault.ofLastBytes && request.find("bytes=-") == std::string::npos)
      fault = {};
    Send(server, request.substr(0, request.find("\r\n") + 2) + "Host: localhost\r\n" +
                     (fault.ignoreRange ? "" : Cut(request, "Range")) + Cut(request, "If-Match") +
                     "\r\n");
    std::string header = Receive(server, IsAnswer);
    if (header.empty())
      return;  // the server has cut the connection
    const size_t headerEnd = header.find("\r\n\r\n") + 2;
    std::string body = header.substr(headerEnd + 2);
    header.resize(headerEnd);
    Spoil(header, body, fault);
    const std::string answer = header + body;
    const auto offset = [&](const std::optional<Fault::Point>& point) {
      const size_t begin = point && point->part == Fault::Part::Body ? header.size() : 0;
      return point ? std::min(begin + point->bytes, answer.size()) : answer.size();
    };
    const size_t end = offset(fault.cut), stall = std::min(offset(fault.stall), end);
    if (!Send(client, std::string_view(answer).substr(0, stall)))
      return;
    if (fault.stall && !Stall(client, fault, releases))
      return;
    if (!Send(client, std::string_view(answer).substr(stall, end - stall)) || fault.cut)
      return;
  }
}

}  // namespace Moravel::Test
