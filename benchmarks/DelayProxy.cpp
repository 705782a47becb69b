#include "DelayProxy.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <list>
#include <stdexcept>
#include <vector>

namespace Moravel::Bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kReadSize = 256 * 1024;
// With a limit of the rate: so little at a time, and no further ahead, that connections share it.
constexpr size_t kLimitedReadSize = 16 * 1024;
constexpr std::chrono::milliseconds kMostQueued(5);
constexpr size_t kMostInFlight = 64 * 1024 * 1024;  // bandwidth x delay of any link here

sockaddr_in Loopback(uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

struct Socket {
  explicit Socket(int fd) : fd_(fd) {
    const int on = 1;
    ::setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  }
  ~Socket() { ::close(fd_); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  const int fd_;
};

// What the server's bytes go through one after the other.
struct Rate {
  int64_t bytesPerSecond;
  Clock::time_point freeAt = {};

  bool IsFree(Clock::time_point now) const { return freeAt < now + kMostQueued; }
  // When so many bytes are through.
  Clock::time_point Send(size_t bytes) {
    const auto ns = static_cast<int64_t>(bytes) * 1'000'000'000 / bytesPerSecond;
    freeAt = std::max(freeAt, Clock::now()) + std::chrono::nanoseconds(ns);
    return freeAt;
  }
};

// One direction of one connection: bytes wait here until they are due.
struct Pipe {
  int from;
  int to;
  Rate* rate = nullptr;  // none for no limit
  struct Chunk {
    Clock::time_point due;
    std::vector<char> bytes;
    size_t sent = 0;
  };
  std::deque<Chunk> chunks = {};
  size_t inFlight = 0;
  bool ended = false;

  bool WantsToRead(Clock::time_point now) const {
    return !ended && inFlight < kMostInFlight && (rate == nullptr || rate->IsFree(now));
  }
  bool IsDue(Clock::time_point now) const { return !chunks.empty() && chunks.front().due <= now; }

  void Read(std::chrono::microseconds delay) {
    std::vector<char> bytes(rate == nullptr ? kReadSize : kLimitedReadSize);
    const ssize_t count = ::recv(from, bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0 && errno == EAGAIN)
      return;
    if (count <= 0) {
      ended = true;
      return;
    }
    bytes.resize(static_cast<size_t>(count));
    inFlight += bytes.size();
    const auto sent = rate == nullptr ? Clock::now() : rate->Send(bytes.size());
    chunks.push_back({sent + delay, std::move(bytes)});
  }

  void Write() {
    while (IsDue(Clock::now())) {
      Chunk& chunk = chunks.front();
      const ssize_t count = ::send(to, chunk.bytes.data() + chunk.sent,
                                   chunk.bytes.size() - chunk.sent, MSG_DONTWAIT | MSG_NOSIGNAL);
      if (count < 0) {
        ended = ended || errno != EAGAIN;
        return;
      }
      inFlight -= static_cast<size_t>(count);
      chunk.sent += static_cast<size_t>(count);
      if (chunk.sent == chunk.bytes.size())
        chunks.pop_front();
    }
  }
};

struct Connection {
  Connection(int clientFd, int serverFd, Rate* rate)
      : client(clientFd),
        server(serverFd),
        up{clientFd, serverFd},
        down{serverFd, clientFd, rate} {}

  bool IsOver() const {
    return (up.ended && up.chunks.empty()) || (down.ended && down.chunks.empty());
  }

  Socket client;
  Socket server;
  Pipe up;
  Pipe down;
};

int Connect(uint16_t port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(port);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw std::runtime_error("delaying proxy: its server does not listen");
  return fd;
}

}  // namespace

DelayProxy::DelayProxy(uint16_t serverPort, std::chrono::microseconds delay, int64_t bytesPerSecond)
    : serverPort_(serverPort),
      delay_(delay),
      bytesPerSecond_(bytesPerSecond),
      listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof address;
  if (::bind(listener_, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      ::listen(listener_, 128) != 0 ||
      ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    throw std::runtime_error("delaying proxy: no port to listen on");
  port_ = ntohs(address.sin_port);
  thread_ = std::jthread([this](std::stop_token stop) { Run(std::move(stop)); });
}

DelayProxy::~DelayProxy() {
  thread_.request_stop();
  thread_.join();
  ::close(listener_);
}

void DelayProxy::Run(std::stop_token stop) {
  std::list<Connection> connections;
  Rate rate{bytesPerSecond_};
  while (!stop.stop_requested()) {
    std::vector<pollfd> polled = {{listener_, POLLIN, 0}};
    auto wake = Clock::now() + std::chrono::milliseconds(50);
    if (bytesPerSecond_ != 0 && !rate.IsFree(Clock::now()))
      wake = rate.freeAt - kMostQueued;
    for (Connection& connection : connections) {
      for (const Pipe* pipe : {&connection.up, &connection.down}) {
        if (pipe->WantsToRead(Clock::now()))
          polled.push_back({pipe->from, POLLIN, 0});
        if (pipe->IsDue(Clock::now()))
          polled.push_back({pipe->to, POLLOUT, 0});
        else if (!pipe->chunks.empty())
          wake = std::min(wake, pipe->chunks.front().due);
      }
    }
    const auto wait = std::max(std::chrono::nanoseconds(0), wake - Clock::now());
    const timespec timeout = {0, static_cast<long>(wait.count())};
    ::ppoll(polled.data(), polled.size(), &timeout, nullptr);
    if (polled.front().revents != 0)
      connections.emplace_back(::accept(listener_, nullptr, nullptr), Connect(serverPort_),
                               bytesPerSecond_ == 0 ? nullptr : &rate);
    for (Connection& connection : connections) {
      for (Pipe* pipe : {&connection.up, &connection.down}) {
        if (pipe->WantsToRead(Clock::now()))
          pipe->Read(delay_);
        pipe->Write();
      }
    }
    // Whoever waited longest is asked first when there is room again.
    if (!connections.empty())
      connections.splice(connections.end(), connections, connections.begin());
    connections.remove_if([](const Connection& connection) { return connection.IsOver(); });
  }
}

}  // namespace Moravel::Bench
