#include "storage/StorageServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <locale.h>
#include <microhttpd.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "storage/Descriptor.h"

namespace Moravel::Player {

namespace {

constexpr unsigned kThreads = 2;
constexpr int kBacklog = 128;
constexpr std::string_view kTrackPrefix = "/tracks/";

std::string LastError() {
  return std::generic_category().message(errno);
}

// Listening sockets.

Descriptor Listen(int family, const sockaddr* address, socklen_t length, const std::string& name) {
  Descriptor result(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  if (family != AF_UNIX) {
    ::setsockopt(result.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    ::setsockopt(result.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // for its connections
  }
  if (!result || ::bind(result.Get(), address, length) != 0 ||
      ::listen(result.Get(), kBacklog) != 0) {
    throw std::runtime_error("storage server: cannot listen on " + name + ": " + LastError());
  }
  return result;
}

Descriptor ListenOnTcp(const std::string& address, uint16_t port) {
  addrinfo hints{};
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const std::string portText = std::to_string(port);
  if (const int error = ::getaddrinfo(address.c_str(), portText.c_str(), &hints, &found)) {
    throw std::runtime_error("storage server: '" + address + "' is no numeric IPv4 or IPv6 " +
                             "address: " + ::gai_strerror(error));
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> holder(found, &::freeaddrinfo);
  return Listen(found->ai_family, found->ai_addr, found->ai_addrlen, address + ":" + portText);
}

Descriptor ListenOnUnixDomainSocket(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw std::runtime_error("storage server: the path of a unix domain socket has at most " +
                             std::to_string(sizeof address.sun_path - 1) + " bytes: " + path);
  }
  path.copy(address.sun_path, path.size());
  return Listen(AF_UNIX, reinterpret_cast<const sockaddr*>(&address), sizeof address, path);
}

uint16_t PortOf(const Descriptor& listening) {
  sockaddr_storage address{};
  socklen_t length = sizeof address;
  ::getsockname(listening.Get(), reinterpret_cast<sockaddr*>(&address), &length);
  switch (address.ss_family) {
    case AF_INET:
      return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    case AF_INET6:
      return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    default:
      return 0;
  }
}

// Files.

struct File {
  Descriptor descriptor;
  struct stat state {};
  uint64_t Size() const { return static_cast<uint64_t>(state.st_size); }
};

// Without a descriptor, and with errno, when there is no such file.
File OpenRegularFile(const std::filesystem::path& path) {
  // Non-blocking, for a pipe must not hold up the server before it is turned down.
  File file{.descriptor = Descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))};
  if (!file.descriptor || ::fstat(file.descriptor.Get(), &file.state) != 0) {
    return {};
  }
  if (!S_ISREG(file.state.st_mode)) {
    errno = S_ISDIR(file.state.st_mode) ? EISDIR : EINVAL;
    return {};
  }
  return file;
}

std::string ETag(const struct stat& state) {
  const auto number = [](auto value) { return std::to_string(value); };
  return '"' + number(state.st_ino) + '-' + number(state.st_size) + '-' +
         number(state.st_mtim.tv_sec) + '.' + number(state.st_mtim.tv_nsec) + '"';
}

// Dates of HTTP are in English, whatever the locale of the process is.
constexpr const char* kDateFormat = "%a, %d %b %Y %H:%M:%S GMT";

locale_t EnglishLocale() {
  static const locale_t locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

std::string DateText(time_t time) {
  struct tm parts {};
  ::gmtime_r(&time, &parts);
  char text[64];
  return {text, ::strftime_l(text, sizeof text, kDateFormat, &parts, EnglishLocale())};
}

std::optional<time_t> ParseDate(const char* text) {
  struct tm parts {};
  const char* end = ::strptime_l(text, kDateFormat, &parts, EnglishLocale());
  return end != nullptr && *end == 0 ? std::optional(::timegm(&parts)) : std::nullopt;
}

// Conditions and ranges.

// The strong comparison: weak tags ("W/" in front) match nothing.
bool MatchesAny(std::string_view list, const std::string& etag) {
  if (list == "*") {
    return true;
  }
  const size_t found = list.find(etag);
  return found != list.npos && (found == 0 || list[found - 1] != '/');
}

class Headers {
 public:
  explicit Headers(MHD_Connection* connection) : connection_(connection) {}
  const char* operator[](const char* name) const {
    return ::MHD_lookup_connection_value(connection_, MHD_HEADER_KIND, name);
  }

 private:
  MHD_Connection* connection_;
};

bool PreconditionsHold(const Headers& headers, const File& file, const std::string& etag) {
  if (const char* tags = headers[MHD_HTTP_HEADER_IF_MATCH]) {
    return MatchesAny(tags, etag);
  }
  const char* date = headers[MHD_HTTP_HEADER_IF_UNMODIFIED_SINCE];
  const std::optional<time_t> limit = date != nullptr ? ParseDate(date) : std::nullopt;
  return !limit || file.state.st_mtim.tv_sec <= *limit;
}

struct ByteRange {
  uint64_t offset;
  uint64_t size;  // 0: nothing of the file is in the range
};

// Cuts a number off the text; the largest one in place of those that are too large.
std::optional<uint64_t> CutNumber(std::string_view& text) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc::invalid_argument) {
    return std::nullopt;
  }
  text.remove_prefix(static_cast<size_t>(end - text.data()));
  return error == std::errc() ? number : std::numeric_limits<uint64_t>::max();
}

// Empty for what is not one byte range: then the header does not count.
std::optional<ByteRange> ParseRange(std::string_view text, uint64_t fileSize) {
  constexpr std::string_view kUnit = "bytes=";
  if (text.size() < kUnit.size() || ::strncasecmp(text.data(), kUnit.data(), kUnit.size()) != 0) {
    return std::nullopt;
  }
  text.remove_prefix(kUnit.size());
  const std::optional<uint64_t> first = CutNumber(text);
  if (!text.starts_with('-')) {
    return std::nullopt;
  }
  text.remove_prefix(1);
  const std::optional<uint64_t> last = CutNumber(text);
  if (!text.empty() || (!first && !last) || (first && last && *last < *first)) {
    return std::nullopt;
  }
  if (!first) {
    const uint64_t size = std::min(*last, fileSize);
    return ByteRange{fileSize - size, size};
  }
  if (*first >= fileSize) {
    return ByteRange{0, 0};
  }
  return ByteRange{*first, std::min(last.value_or(fileSize), fileSize - 1) - *first + 1};
}

// Empty for the whole file.
std::optional<ByteRange> WantedRange(const Headers& headers, const File& file,
                                     const std::string& etag) {
  const char* range = headers[MHD_HTTP_HEADER_RANGE];
  const char* validator = headers[MHD_HTTP_HEADER_IF_RANGE];
  const bool current =
      validator == nullptr || validator == etag || validator == DateText(file.state.st_mtim.tv_sec);
  return range != nullptr && current ? ParseRange(range, file.Size()) : std::nullopt;
}

// Answers.

class Response {
 public:
  // An empty body.
  Response() : response_(::MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT)) {}
  // That part of the file.
  Response(Descriptor file, const ByteRange& range)
      : response_(::MHD_create_response_from_fd_at_offset64(range.size, file.Get(), range.offset)) {
    if (response_) {
      file.Release();
    }
  }

  void Add(const char* name, const std::string& value) {
    ::MHD_add_response_header(response_.get(), name, value.c_str());
  }
  // False when there is no memory for it.
  bool Send(MHD_Connection* connection, unsigned status) {
    return response_ && ::MHD_queue_response(connection, status, response_.get()) == MHD_YES;
  }

 private:
  struct Destroyer {
    void operator()(MHD_Response* response) const { ::MHD_destroy_response(response); }
  };
  std::unique_ptr<MHD_Response, Destroyer> response_;
};

std::string ContentRange(const ByteRange& range, uint64_t fileSize) {
  const std::string part = range.size == 0 ? "*"
                                           : std::to_string(range.offset) + '-' +
                                                 std::to_string(range.offset + range.size - 1);
  return "bytes " + part + '/' + std::to_string(fileSize);
}

std::optional<int64_t> TrackOfPath(std::string_view path) {
  int64_t id = 0;
  if (!path.starts_with(kTrackPrefix)) {
    return std::nullopt;
  }
  path.remove_prefix(kTrackPrefix.size());
  const auto [end, error] = std::from_chars(path.data(), path.data() + path.size(), id);
  return error == std::errc() && end == path.data() + path.size() ? std::optional(id)
                                                                  : std::nullopt;
}

}  // namespace

void StorageServer::Stopper::operator()(MHD_Daemon* daemon) const {
  ::MHD_stop_daemon(daemon);
}

StorageServer::StorageServer(const Options& options) {
  const bool tcp = options.unixDomainSocket.empty();
  Descriptor listening = tcp ? ListenOnTcp(options.address, options.port)
                             : ListenOnUnixDomainSocket(options.unixDomainSocket);
  if (!tcp) {
    socketFile_.reset(static_cast<const void*>(nullptr),
                      [file = options.unixDomainSocket](const void*) { ::unlink(file.c_str()); });
  }
  port_ = PortOf(listening);

  const auto answer = [](void* server, MHD_Connection* connection, const char* path,
                         const char* method, const char*, const char*, size_t*, void**) {
    try {
      const bool keep = static_cast<StorageServer*>(server)->Answer(connection, path, method);
      return keep ? MHD_YES : MHD_NO;
    } catch (const std::exception&) {  // out of memory
      return MHD_NO;
    }
  };
  // The daemon owns the socket from here on.
  daemon_.reset(::MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD, 0, nullptr, nullptr, +answer,
                                   this, MHD_OPTION_LISTEN_SOCKET, listening.Release(),
                                   MHD_OPTION_THREAD_POOL_SIZE, kThreads, MHD_OPTION_END));
  if (!daemon_) {
    throw std::runtime_error("storage server: cannot start its threads");
  }
}

StorageServer::~StorageServer() = default;

void StorageServer::AddTrack(int64_t id, std::filesystem::path file) {
  if (!OpenRegularFile(file).descriptor) {
    throw std::runtime_error("track " + std::to_string(id) + ": cannot read " + file.string() +
                             ": " + (errno == EINVAL ? "Not a regular file" : LastError()));
  }
  const std::lock_guard lock(tracksAccess_);
  tracks_.insert_or_assign(id, std::move(file));
}

bool StorageServer::Answer(MHD_Connection* connection, std::string_view path,
                           std::string_view method) {
  ++requestCount_;
  if (method != MHD_HTTP_METHOD_GET && method != MHD_HTTP_METHOD_HEAD) {
    Response response;
    response.Add(MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    return response.Send(connection, MHD_HTTP_METHOD_NOT_ALLOWED);
  }
  const std::optional<int64_t> id = TrackOfPath(path);
  File file;
  {
    const std::shared_lock lock(tracksAccess_);
    const auto track = id ? tracks_.find(*id) : tracks_.end();
    file = track != tracks_.end() ? OpenRegularFile(track->second) : File{};
  }
  if (!file.descriptor) {
    return Response().Send(connection, MHD_HTTP_NOT_FOUND);
  }
  const Headers headers(connection);
  const std::string etag = ETag(file.state);
  if (!PreconditionsHold(headers, file, etag)) {
    return Response().Send(connection, MHD_HTTP_PRECONDITION_FAILED);
  }

  const bool get = method == MHD_HTTP_METHOD_GET;  // ranges are for GET only
  const uint64_t size = file.Size();
  const std::optional<ByteRange> range = get ? WantedRange(headers, file, etag) : std::nullopt;
  const ByteRange part = range.value_or(ByteRange{0, size});
  const bool unsatisfiable = range && part.size == 0;
  Response response = unsatisfiable ? Response() : Response(std::move(file.descriptor), part);
  response.Add(MHD_HTTP_HEADER_ACCEPT_RANGES, "bytes");
  response.Add(MHD_HTTP_HEADER_ETAG, etag);
  response.Add(MHD_HTTP_HEADER_LAST_MODIFIED, DateText(file.state.st_mtim.tv_sec));
  if (range) {
    response.Add(MHD_HTTP_HEADER_CONTENT_RANGE, ContentRange(part, size));
  }
  bytesRequested_ += get ? part.size : 0;
  return response.Send(connection, unsatisfiable ? MHD_HTTP_RANGE_NOT_SATISFIABLE
                                   : range       ? MHD_HTTP_PARTIAL_CONTENT
                                                 : MHD_HTTP_OK);
}

}  // namespace Moravel::Player
