#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <shared_mutex>
#include <string>
#include <string_view>

struct MHD_Connection;
struct MHD_Daemon;

namespace Moravel::Player {

// A storage server inside this process. It serves whole files as tracks over HTTP/1.1, by byte
// ranges, from threads of its own. All operations may be called from any thread.
//
// GET and HEAD /tracks/ID, connections are kept. Single byte ranges as RFC 9110 has them, with
// strong ETag, Last-Modified, If-Match, If-Unmodified-Since and If-Range; several ranges in one
// request get the whole file. A file is opened anew for each request: a file that was replaced has
// a new ETag at once, and an answer never mixes two files.
class StorageServer {
 public:
  struct Options {
    std::string address = "127.0.0.1";  // numeric, IPv4 or IPv6
    uint16_t port = 0;                  // 0: one that is free
    std::string unixDomainSocket = {};  // a path that is not in use; when set, there is no TCP port
  };

  // Listens when it returns. Throws std::runtime_error, which names the address and the reason.
  explicit StorageServer(const Options& options);
  // Cuts the connections, stops the threads and removes the socket's file.
  ~StorageServer();
  StorageServer(const StorageServer&) = delete;
  StorageServer& operator=(const StorageServer&) = delete;

  // Serves the file as track `id`, in place of an earlier one. Throws std::runtime_error when it is
  // not a regular file that can be read.
  void AddTrack(int64_t id, std::filesystem::path file);

  // The TCP port; 0 on a unix domain socket.
  uint16_t Port() const { return port_; }

  // Answers so far, and the sum of the lengths of their bodies.
  uint64_t RequestCount() const { return requestCount_; }
  uint64_t BytesRequested() const { return bytesRequested_; }

 private:
  struct Stopper {
    void operator()(MHD_Daemon* daemon) const;
  };

  // The file behind the path of a URL; empty when it is no track.
  std::filesystem::path FileOf(std::string_view path);
  // False: the connection is to be closed.
  bool Answer(MHD_Connection* connection, std::string_view path, std::string_view method);

  uint16_t port_ = 0;
  std::atomic<uint64_t> requestCount_ = 0;
  std::atomic<uint64_t> bytesRequested_ = 0;

  std::shared_mutex tracksAccess_;  // guards tracks_
  std::map<int64_t, std::filesystem::path> tracks_;

  std::shared_ptr<const void> socketFile_;       // removes the unix domain socket's file
  std::unique_ptr<MHD_Daemon, Stopper> daemon_;  // the last: its threads use all of the above
};

}  // namespace Moravel::Player
