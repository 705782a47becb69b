#include "storage-server/StorageServer.h"

#include <microhttpd.h>
#include <sys/random.h>
#include <unistd.h>

#include <charconv>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>

#include "storage-server/HostName.h"
#include "storage-server/Judgement.h"
#include "storage-server/Listening.h"
#include "storage-server/Request.h"
#include "storage-server/Response.h"

namespace Moravel::Player {

namespace {

constexpr unsigned kThreads = 2;
constexpr unsigned kMaxConnections = 512;
constexpr std::string_view kTrackPrefix = "/tracks/";

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
      const bool keep =
          static_cast<StorageServer*>(server)->Answer(Request(connection, method, path));
      return keep ? MHD_YES : MHD_NO;
    } catch (const std::exception&) {  // out of memory
      return MHD_NO;
    }
  }
};

void StorageServer::Stopper::operator()(MHD_Daemon* daemon) const {
  ::MHD_stop_daemon(daemon);
}

StorageServer::StorageServer(const Options& options)
    : onAnswer_(options.onAnswer),
      hasBadNetwork_(!options.network.IsGood()),
      network_(options.network) {
  const bool tcp = options.unixDomainSocket.empty();
  Descriptor listening = tcp ? ListenOnTcp(options.address, options.port)
                             : ListenOnUnixDomainSocket(options.unixDomainSocket);
  if (!tcp) {
    socketFile_.reset(static_cast<const void*>(nullptr),
                      [file = options.unixDomainSocket](const void*) { ::unlink(file.c_str()); });
  }
  port_ = PortOf(listening);
  isLoopback_ = tcp && IsLoopback(options.address);
  // On a bad network, a connection waits in a thread of its own.
  const unsigned threads = hasBadNetwork_
                               ? MHD_USE_THREAD_PER_CONNECTION | MHD_USE_POLL_INTERNAL_THREAD
                               : MHD_USE_EPOLL_INTERNAL_THREAD;
  // The daemon owns the socket from here on. Its threads are told of the end by a channel (ITC):
  // one that has as many connections as it may have does not look at the listening socket.
  daemon_.reset(::MHD_start_daemon(
      threads | MHD_USE_ITC, 0, nullptr, nullptr, &Callbacks::Answer, this,
      MHD_OPTION_LISTEN_SOCKET, listening.Release(), MHD_OPTION_THREAD_POOL_SIZE,
      hasBadNetwork_ ? 0 : kThreads, MHD_OPTION_CONNECTION_LIMIT, kMaxConnections,
      MHD_OPTION_CONNECTION_TIMEOUT, options.idleSeconds, MHD_OPTION_NOTIFY_CONNECTION,
      &Strangers::Notify, &strangers_, MHD_OPTION_END));
  if (!daemon_) {
    throw std::runtime_error("storage server: cannot start its threads");
  }
}

StorageServer::~StorageServer() {
  network_.Stop();
}

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

unsigned StorageServer::Refusal(const Request& request) const {
  const char* host = request[MHD_HTTP_HEADER_HOST];
  if (host == nullptr) {
    return MHD_HTTP_BAD_REQUEST;
  }
  // A browser whose page has pointed a name of its own at this machine says that name.
  if (isLoopback_ && !IsLoopback(AddressOfHost(host))) {
    return MHD_HTTP_MISDIRECTED_REQUEST;
  }
  return request.Method() == MHD_HTTP_METHOD_GET || request.Method() == MHD_HTTP_METHOD_HEAD
             ? 0
             : MHD_HTTP_METHOD_NOT_ALLOWED;
}

bool StorageServer::Answer(const Request& request) {
  using Fate = BadNetwork::Fate;
  ++requestCount_;
  const Fate fate = hasBadNetwork_ ? network_.AwaitAnswer() : Fate::Whole;
  if (fate == Fate::Dropped) {
    Tell(request, 0, 0);
    return false;
  }
  if (const unsigned refusal = Refusal(request)) {
    Response response;
    response.Add(MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
    return Send(request, refusal, response, 0);
  }
  const std::shared_ptr<const ServedFile> track = FileOf(request.Path());
  if (!track) {
    Response response;
    return Send(request, MHD_HTTP_NOT_FOUND, response, 0);
  }
  strangers_.Leave(request.Connection());
  std::optional<FileState> file = track->Now();
  if (!file) {
    Response response;
    return Send(request, MHD_HTTP_SERVICE_UNAVAILABLE, response, 0);
  }
  return AnswerFile(request, std::move(*file), fate == Fate::Truncated);
}

bool StorageServer::AnswerFile(const Request& request, FileState file, bool isTruncated) {
  const auto [status, part] = Judge(request, file);
  const bool hasBody = status < MHD_HTTP_BAD_REQUEST;
  Response response = !hasBody ? Response()
                      : hasBadNetwork_
                          ? Response(std::move(file.descriptor), part, network_, isTruncated)
                          : Response(std::move(file.descriptor), part);
  response.Add(MHD_HTTP_HEADER_ACCEPT_RANGES, "bytes");
  response.Add(MHD_HTTP_HEADER_ETAG, file.ETag());
  response.Add(MHD_HTTP_HEADER_LAST_MODIFIED, DateText(file.ModifiedAt()));
  if (status == MHD_HTTP_PARTIAL_CONTENT || status == MHD_HTTP_RANGE_NOT_SATISFIABLE) {
    response.Add(MHD_HTTP_HEADER_CONTENT_RANGE, ContentRange(part, file.Size()));
  }
  return Send(request, status, response, request.Method() == MHD_HTTP_METHOD_GET ? part.size : 0);
}

bool StorageServer::Send(const Request& request, unsigned status, Response& response,
                         uint64_t bodyBytes) {
  bytesRequested_ += bodyBytes;
  Tell(request, status, bodyBytes);
  return response.Send(request.Connection(), status);
}

void StorageServer::Tell(const Request& request, unsigned status, uint64_t bodyBytes) const {
  if (!onAnswer_) {
    return;
  }
  const char* const range = request[MHD_HTTP_HEADER_RANGE];
  onAnswer_({request.Client(), std::string(request.Method()), std::string(request.Path()),
             range != nullptr ? range : "", status, bodyBytes});
}

}  // namespace Moravel::Player
