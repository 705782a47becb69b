#include "support/FaultyServer.h"

#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "storage/ByteRange.h"
#include "storage/Listening.h"

namespace Moravel::Test {

namespace {

using Player::ByteRange;

// False when the peer is gone.
bool Send(const Descriptor& socket, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

// The header of the next request, empty when there is none. Requests have no body.
std::string ReceiveHeader(const Descriptor& socket) {
  std::string text;
  char bytes[4096];
  while (!text.ends_with("\r\n\r\n")) {
    const ssize_t received = ::recv(socket.Get(), bytes, sizeof bytes, 0);
    if (received <= 0) {
      return {};
    }
    text.append(bytes, static_cast<size_t>(received));
  }
  return text;
}

Request ParseRequest(const std::string& text) {
  Request request{};
  std::istringstream lines(text);
  lines >> request.method >> request.path;
  std::string line;
  std::getline(lines, line);
  while (std::getline(lines, line) && line != "\r") {
    const size_t colon = line.find(':');
    if (colon != line.npos) {
      std::string name = line.substr(0, colon);
      std::transform(name.begin(), name.end(), name.begin(),
                     [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
      const size_t value = line.find_first_not_of(' ', colon + 1);
      request.headers[name] = line.substr(value, line.find_last_not_of("\r ") + 1 - value);
    }
  }
  return request;
}

struct Reply {
  int status = 200;
  std::string etag;
  std::string contentRange;
  std::string body;
};

// True when the header is there, and is not `value`.
bool Differs(const Request& request, const std::string& name, const std::string& value) {
  const auto header = request.headers.find(name);
  return header != request.headers.end() && header->second != value;
}

// What a sound server answers, but for ranges that the fault ignores.
Reply MakeReply(const std::string& content, const std::string& etag, const Request& request,
                const Fault& fault) {
  if (Differs(request, "if-match", etag)) {
    return {.status = 412, .etag = etag, .contentRange = {}, .body = {}};
  }
  const auto header = request.headers.find("range");
  const bool whole =
      header == request.headers.end() || fault.ignoreRange || Differs(request, "if-range", etag);
  const std::optional<ByteRange> range =
      whole ? std::nullopt : Player::ParseRange(header->second, content.size());
  const ByteRange part = range.value_or(ByteRange{0, content.size()});
  return {.status = !range           ? 200
                    : part.size == 0 ? 416
                                     : 206,
          .etag = etag,
          .contentRange = range ? Player::ContentRange(part, content.size()) : std::string(),
          .body = content.substr(part.offset, part.size)};
}

void Spoil(Reply& reply, const Fault& fault) {
  if (fault.status != 0) {
    reply.status = fault.status;
    if (fault.status != 200 && fault.status != 206) {
      reply.body.clear();
      reply.contentRange.clear();
    }
  }
  if (!fault.contentRange.empty()) {
    reply.contentRange = fault.contentRange;
  }
  reply.etag = fault.etag.value_or(reply.etag);
  const int64_t size = static_cast<int64_t>(reply.body.size()) + fault.bodyExcess;
  reply.body.resize(static_cast<size_t>(std::max<int64_t>(0, size)), '!');
}

std::string HeaderText(const Reply& reply, const Fault& fault) {
  std::string text = "HTTP/1.1 " + std::to_string(reply.status) +
                     " Answer\r\nContent-Length: " + std::to_string(reply.body.size()) +
                     "\r\nAccept-Ranges: bytes\r\n";
  const auto add = [&text](const std::string& name, const std::string& value) {
    if (!value.empty()) {
      text += name + ": " + value + "\r\n";
    }
  };
  add("ETag", reply.etag);
  add("Content-Range", reply.contentRange);
  return text + fault.headerLines + "\r\n";
}

size_t OffsetOf(const std::optional<Fault::Point>& point, size_t headerSize, size_t end) {
  const size_t partBegin = point && point->part == Fault::Part::Body ? headerSize : 0;
  return point ? std::min(partBegin + point->bytes, end) : end;
}

}  // namespace

struct FaultyServer::Connection {
  explicit Connection(Descriptor accepted) : socket(std::move(accepted)) {}
  Descriptor socket;
  uint64_t releases = 0;  // before the request that is answered now
  std::atomic<bool> done = false;
  std::thread thread = {};
  ~Connection() {
    if (thread.joinable()) {
      thread.join();
    }
  }
};

FaultyServer::FaultyServer() {
  SetListening(true);
}

FaultyServer::~FaultyServer() {
  SetListening(false);
}

void FaultyServer::SetTrack(int64_t id, const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    throw std::runtime_error("faulty server: cannot read " + file.string());
  }
  std::string content{std::istreambuf_iterator<char>(stream), {}};
  const std::lock_guard lock(stateAccess_);
  tracks_["/tracks/" + std::to_string(id)] = std::make_shared<const Track>(
      Track{std::move(content), "\"version-" + std::to_string(++versions_) + '"'});
}

void FaultyServer::SetFaults(FaultChooser chooser) {
  const std::lock_guard lock(faultsAccess_);
  chooser_ = std::move(chooser);
}

void FaultyServer::SetFault(const Fault& fault, int requests) {
  SetFaults([fault, requests](const Request&) mutable {
    return requests > 0 && requests-- > 0 ? fault : Fault{};
  });
}

void FaultyServer::ReleaseStalls() {
  const std::lock_guard lock(stateAccess_);
  ++releases_;
  released_.notify_all();
}

void FaultyServer::SetListening(bool listening) {
  if (listening == acceptor_.joinable()) {
    return;
  }
  if (listening) {
    listening_ = Player::ListenOnTcp("127.0.0.1", port_);
    if (port_ == 0) {
      port_ = Player::PortOf(listening_);
    }
    acceptor_ = std::thread([this] { Accept(); });
    return;
  }
  ::shutdown(listening_.Get(), SHUT_RDWR);
  acceptor_.join();
  listening_ = Descriptor();
  const auto setClosing = [this](bool closing) {
    const std::lock_guard lock(stateAccess_);
    closing_ = closing;
    released_.notify_all();
  };
  setClosing(true);
  for (const Connection& connection : connections_) {
    ::shutdown(connection.socket.Get(), SHUT_RDWR);
  }
  connections_.clear();
  setClosing(false);
}

uint64_t FaultyServer::RequestCount() const {
  const std::lock_guard lock(stateAccess_);
  return requestCount_;
}

void FaultyServer::Accept() {
  // Fails when the listening socket is shut down.
  while (Descriptor socket{::accept4(listening_.Get(), nullptr, nullptr, SOCK_CLOEXEC)}) {
    connections_.remove_if([](const Connection& connection) { return connection.done.load(); });
    Connection& connection = connections_.emplace_back(std::move(socket));
    connection.thread = std::thread([this, &connection] { Serve(connection); });
  }
}

void FaultyServer::Serve(Connection& connection) {
  for (bool keep = true; keep;) {
    const std::string text = ReceiveHeader(connection.socket);
    if (text.empty()) {
      break;
    }
    Request request = ParseRequest(text);
    {
      const std::lock_guard lock(stateAccess_);
      request.number = requestCount_++;
      connection.releases = releases_;
    }
    keep = Answer(connection, request, ChooseFault(request));
  }
  ::shutdown(connection.socket.Get(), SHUT_RDWR);  // closed when its owner lets go of it
  connection.done = true;
}

Fault FaultyServer::ChooseFault(const Request& request) {
  const std::lock_guard lock(faultsAccess_);
  return chooser_ ? chooser_(request) : Fault{};
}

std::shared_ptr<const FaultyServer::Track> FaultyServer::FindTrack(const std::string& path) const {
  const std::lock_guard lock(stateAccess_);
  const auto track = tracks_.find(path);
  return track != tracks_.end() ? track->second : nullptr;
}

// False: the connection is to be closed.
bool FaultyServer::Answer(const Connection& connection, const Request& request,
                          const Fault& fault) {
  const std::shared_ptr<const Track> track = FindTrack(request.path);
  Reply reply{.status = 404, .etag = {}, .contentRange = {}, .body = {}};
  if (request.method != "GET") {
    reply.status = 405;
  } else if (track) {
    reply = MakeReply(track->content, track->etag, request, fault);
  }
  Spoil(reply, fault);
  const std::string header = HeaderText(reply, fault);
  const std::string answer = header + reply.body;
  const size_t end = OffsetOf(fault.cut, header.size(), answer.size());
  const size_t stall = OffsetOf(fault.stall, header.size(), end);
  const std::string_view bytes(answer);
  if (!Send(connection.socket, bytes.substr(0, stall))) {
    return false;
  }
  if (fault.stall) {
    AwaitRelease(connection.releases);
  }
  return Send(connection.socket, bytes.substr(stall, end - stall)) && !fault.cut;
}

void FaultyServer::AwaitRelease(uint64_t before) {
  std::unique_lock lock(stateAccess_);
  released_.wait(lock, [this, before] { return closing_ || releases_ != before; });
}

}  // namespace Moravel::Test
