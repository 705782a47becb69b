#include "storage-server/StorageServer.h"

#include <locale.h>
#include <microhttpd.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include <charconv>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <utility>

#include "storage-server/ByteRange.h"
#include "storage-server/HostName.h"
#include "storage-server/Listening.h"

namespace Moravel::Player {

namespace {

constexpr unsigned kThreads = 2;
constexpr unsigned kMaxConnections = 512;
constexpr std::string_view kTrackPrefix = "/tracks/";

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

bool PreconditionsHold(const Headers& headers, const FileState& file, const std::string& etag) {
  if (const char* tags = headers[MHD_HTTP_HEADER_IF_MATCH]) {
    return MatchesAny(tags, etag);
  }
  const char* date = headers[MHD_HTTP_HEADER_IF_UNMODIFIED_SINCE];
  const std::optional<time_t> limit = date != nullptr ? ParseDate(date) : std::nullopt;
  return !limit || file.ModifiedAt() <= *limit;
}

// Empty for the whole file.
std::optional<ByteRange> WantedRange(const Headers& headers, const FileState& file,
                                     const std::string& etag) {
  const char* range = headers[MHD_HTTP_HEADER_RANGE];
  const char* validator = headers[MHD_HTTP_HEADER_IF_RANGE];
  const bool current =
      validator == nullptr || validator == etag || validator == DateText(file.ModifiedAt());
  return range != nullptr && current ? ParseRange(range, file.Size()) : std::nullopt;
}

// The status of the answer, and the part of the file in it.
std::pair<unsigned, ByteRange> Judge(const Headers& headers, bool get, const FileState& file,
                                     const std::string& etag) {
  if (!PreconditionsHold(headers, file, etag)) {
    return {MHD_HTTP_PRECONDITION_FAILED, {0, 0}};
  }
  const std::optional<ByteRange> range = get ? WantedRange(headers, file, etag) : std::nullopt;
  if (!range) {
    return {MHD_HTTP_OK, {0, file.Size()}};
  }
  return {range->size != 0 ? MHD_HTTP_PARTIAL_CONTENT : MHD_HTTP_RANGE_NOT_SATISFIABLE, *range};
}

// Answers.

class Response {
 public:
  // An empty body.
  Response() : response_(::MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT)) {
    Check();
  }
  // That part of the file.
  Response(Descriptor file, const ByteRange& range)
      : response_(::MHD_create_response_from_fd_at_offset64(range.size, file.Get(), range.offset)) {
    Check();
    file.Release();
  }

  void Add(const char* name, const std::string& value) {
    ::MHD_add_response_header(response_.get(), name, value.c_str());
  }
  bool Send(MHD_Connection* connection, unsigned status) {
    return ::MHD_queue_response(connection, status, response_.get()) == MHD_YES;
  }

 private:
  void Check() const {
    if (!response_) {
      throw std::bad_alloc();
    }
  }
  struct Destroyer {
    void operator()(MHD_Response* response) const { ::MHD_destroy_response(response); }
  };
  std::unique_ptr<MHD_Response, Destroyer> response_;
};

int64_t RandomNumber() {
  uint64_t number = 0;
  while (::getrandom(&number, sizeof number, 0) != sizeof number) {
  }
  return static_cast<int64_t>(number >> 1);
}

}  // namespace

// What the daemon calls, in its threads. No exception may pass through it.
struct StorageServer::Callbacks {
  static MHD_Result Answer(void* server, MHD_Connection* connection, const char* path,
                           const char* method, const char*, const char*, size_t* uploaded,
                           void** request) {
    // The connection is kept only when the answer waits for the end of the request.
    if (*request == nullptr || *uploaded != 0) {
      *request = server;
      *uploaded = 0;
      return MHD_YES;
    }
    try {
      const bool keep = static_cast<StorageServer*>(server)->Answer(connection, path, method);
      return keep ? MHD_YES : MHD_NO;
    } catch (const std::exception&) {  // out of memory
      return MHD_NO;
    }
  }

  static void Notify(void* server, MHD_Connection* connection, void** context,
                     MHD_ConnectionNotificationCode code) {
    Strangers& strangers = static_cast<StorageServer*>(server)->strangers_;
    if (code == MHD_CONNECTION_NOTIFY_CLOSED) {
      strangers.Leave(reinterpret_cast<uintptr_t>(*context));
      return;
    }
    const int socket =
        ::MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
    *context = reinterpret_cast<void*>(strangers.Enter(socket));
  }
};

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
  isLoopback_ = tcp && IsLoopback(options.address);
  // The daemon owns the socket from here on. Its threads are told of the end by a channel (ITC):
  // one that has as many connections as it may have does not look at the listening socket.
  daemon_.reset(::MHD_start_daemon(
      MHD_USE_EPOLL_INTERNAL_THREAD | MHD_USE_ITC, 0, nullptr, nullptr, &Callbacks::Answer, this,
      MHD_OPTION_LISTEN_SOCKET, listening.Release(), MHD_OPTION_THREAD_POOL_SIZE, kThreads,
      MHD_OPTION_CONNECTION_LIMIT, kMaxConnections, MHD_OPTION_CONNECTION_TIMEOUT,
      options.idleSeconds, MHD_OPTION_NOTIFY_CONNECTION, &Callbacks::Notify, this, MHD_OPTION_END));
  if (!daemon_) {
    throw std::runtime_error("storage server: cannot start its threads");
  }
}

StorageServer::~StorageServer() = default;

void StorageServer::AddTrack(int64_t id, const std::filesystem::path& file) {
  auto served = std::make_shared<const ServedFile>(file);
  const std::lock_guard lock(tracksAccess_);
  tracks_.insert_or_assign(id, std::move(served));
}

int64_t StorageServer::AddTrack(const std::filesystem::path& file) {
  const int64_t id = RandomNumber();
  AddTrack(id, file);
  return id;
}

std::shared_ptr<const ServedFile> StorageServer::FileOf(std::string_view path) const {
  int64_t id = 0;
  if (!path.starts_with(kTrackPrefix)) {
    return nullptr;
  }
  path.remove_prefix(kTrackPrefix.size());
  const auto [end, error] = std::from_chars(path.data(), path.data() + path.size(), id);
  if (error != std::errc() || end != path.data() + path.size()) {
    return nullptr;
  }
  const std::shared_lock lock(tracksAccess_);
  const auto track = tracks_.find(id);
  return track != tracks_.end() ? track->second : nullptr;
}

unsigned StorageServer::RefuseRequest(MHD_Connection* connection, std::string_view method) const {
  const char* host = Headers(connection)[MHD_HTTP_HEADER_HOST];
  if (host == nullptr) {
    return MHD_HTTP_BAD_REQUEST;
  }
  // A browser whose page has pointed a name of its own at this machine says that name.
  if (isLoopback_ && !IsLoopback(AddressOfHost(host))) {
    return MHD_HTTP_MISDIRECTED_REQUEST;
  }
  return method == MHD_HTTP_METHOD_GET || method == MHD_HTTP_METHOD_HEAD
             ? 0
             : MHD_HTTP_METHOD_NOT_ALLOWED;
}

bool StorageServer::Answer(MHD_Connection* connection, std::string_view path,
                           std::string_view method) {
  ++requestCount_;
  if (const unsigned refusal = RefuseRequest(connection, method)) {
    Response response;
    response.Add(MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    return response.Send(connection, refusal);
  }
  const std::shared_ptr<const ServedFile> track = FileOf(path);
  if (!track) {
    return Response().Send(connection, MHD_HTTP_NOT_FOUND);
  }
  strangers_.Leave(reinterpret_cast<uintptr_t>(
      ::MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context));
  std::optional<FileState> file = track->Now();
  if (!file) {
    return Response().Send(connection, MHD_HTTP_SERVICE_UNAVAILABLE);
  }
  return AnswerFile(connection, std::move(*file), method == MHD_HTTP_METHOD_GET);
}

bool StorageServer::AnswerFile(MHD_Connection* connection, FileState file, bool get) {
  const std::string etag = file.ETag();
  const auto [status, part] = Judge(Headers(connection), get, file, etag);
  const bool refused = status >= MHD_HTTP_BAD_REQUEST;
  Response response = refused ? Response() : Response(std::move(file.descriptor), part);
  response.Add(MHD_HTTP_HEADER_ACCEPT_RANGES, "bytes");
  response.Add(MHD_HTTP_HEADER_ETAG, etag);
  response.Add(MHD_HTTP_HEADER_LAST_MODIFIED, DateText(file.ModifiedAt()));
  if (status == MHD_HTTP_PARTIAL_CONTENT || status == MHD_HTTP_RANGE_NOT_SATISFIABLE) {
    response.Add(MHD_HTTP_HEADER_CONTENT_RANGE, ContentRange(part, file.Size()));
  }
  bytesRequested_ += get ? part.size : 0;
  return response.Send(connection, status);
}

}  // namespace Moravel::Player
