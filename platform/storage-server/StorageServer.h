#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <shared_mutex>
#include <string>
#include <string_view>

#include "storage-server/BadNetwork.h"
#include "storage-server/ServedFile.h"
#include "storage-server/Strangers.h"

struct MHD_Daemon;

namespace Moravel::Player {

class Request;
class Response;

// A storage server inside this process. It serves whole files as tracks over HTTP/1.1, by byte
// ranges, from threads of its own. All operations may be called from any thread.
//
// GET and HEAD /tracks/ID, connections are kept. Single byte ranges as RFC 9110 has them, with
// strong ETag, Last-Modified, If-Match, If-Unmodified-Since and If-Range; several ranges in one
// request get the whole file. A file is open from AddTrack on: what takes its path's place later is
// not served. A file that is written to has a new ETag at once.
//
// Everybody on the machine reaches a loopback port. There, only requests to a loopback address by
// number or to localhost are answered (421, 400 without Host). What is not there is 404, a track
// whose file cannot be had now 503. Connections that are idle are closed; those that have named no
// track are few, and make room for new ones.
class StorageServer {
 public:
  // An answer, as a log tells it. The texts are the client's own.
  struct Answered {
    std::string client;  // "127.0.0.1:49152", empty on a unix domain socket
    std::string method;
    std::string path;
    std::string range;   // the value of the Range header
    unsigned status;     // 0: none was sent, the connection was cut
    uint64_t bodyBytes;  // as announced
  };
  struct Options {
    std::string address = "127.0.0.1";  // numeric, IPv4 or IPv6
    uint16_t port = 0;                  // 0: one that is free
    std::string unixDomainSocket = {};  // a path that is not in use; when set, there is no TCP port
    unsigned idleSeconds = 30;          // a connection without progress is closed after that time
    BadNetwork::Options network = {};   // for trying what clients do on one
    std::function<void(const Answered&)> onAnswer = {};  // called by the server's threads
  };

  // Listens when it returns. Throws std::runtime_error, which names the address and the reason.
  explicit StorageServer(const Options& options);
  // Cuts the connections, stops the threads and removes the socket's file.
  ~StorageServer();
  StorageServer(const StorageServer&) = delete;
  StorageServer& operator=(const StorageServer&) = delete;

  // Serves the file as track `id`, in place of an earlier one. Throws std::runtime_error, which
  // names the file and the reason, when it is not a regular file that can be read.
  void AddTrack(int64_t id, const std::filesystem::path& file);
  // The same under a number that nobody can guess, for a file that is not for everybody who can
  // connect. Returns the number.
  int64_t AddTrack(const std::filesystem::path& file);

  // The TCP port; 0 on a unix domain socket.
  uint16_t Port() const { return port_; }

  // Answers so far, and the sum of the lengths of their bodies.
  uint64_t RequestCount() const { return requestCount_; }
  uint64_t BytesRequested() const { return bytesRequested_; }

 private:
  struct Stopper {
    void operator()(MHD_Daemon* daemon) const;
  };

  struct Callbacks;

  // The file behind the path of a URL; null when it is no track.
  std::shared_ptr<const ServedFile> FileOf(std::string_view path) const;
  // The status for a request that is none of ours; 0 for others.
  unsigned Refusal(const Request& request) const;
  // False, of all three: the connection is to be closed.
  bool Answer(const Request& request);
  bool AnswerFile(const Request& request, FileState file, bool isTruncated);
  bool Send(const Request& request, unsigned status, Response& response, uint64_t bodyBytes);
  void Tell(const Request& request, unsigned status, uint64_t bodyBytes) const;

  const std::function<void(const Answered&)> onAnswer_;
  uint16_t port_ = 0;
  bool isLoopback_ = false;
  std::atomic<uint64_t> requestCount_ = 0;
  std::atomic<uint64_t> bytesRequested_ = 0;

  Strangers strangers_;
  const bool hasBadNetwork_;
  BadNetwork network_;

  mutable std::shared_mutex tracksAccess_;  // guards tracks_
  std::map<int64_t, std::shared_ptr<const ServedFile>> tracks_;

  std::shared_ptr<const void> socketFile_;       // removes the unix domain socket's file
  std::unique_ptr<MHD_Daemon, Stopper> daemon_;  // the last: its threads use all of the above
};

}  // namespace Moravel::Player
