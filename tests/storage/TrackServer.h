#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <ostream>
#include <string>

#include "storage/StorageServer.h"
#include "support/TempFolder.h"

namespace Moravel::Test {

// The servers that tests run against. nginx is a child process of the test's user, with all its
// files in a temporary folder.
struct ServerKind {
  const char* name;
  bool isNginx;
  bool isUnixSocket;
};

inline std::ostream& operator<<(std::ostream& out, const ServerKind& kind) {
  return out << kind.name;
}

// Where the nginx program is; empty when it is not installed.
std::filesystem::path FindNginx();

// A running storage server of some kind.
class TrackServer {
 public:
  explicit TrackServer(const ServerKind& kind);
  ~TrackServer();
  TrackServer(const TrackServer&) = delete;
  TrackServer& operator=(const TrackServer&) = delete;

  // Serves the file as track `id`, in place of an earlier one.
  void SetTrack(int64_t id, const std::filesystem::path& file);

  uint16_t Port() const { return port_; }
  // Empty when it is reached over TCP.
  const std::string& UnixDomainSocket() const { return socket_; }

 private:
  void StartNginx();
  void RunNginx();

  const TempFolder folder_;
  const std::string socket_;
  uint16_t port_ = 0;
  std::optional<Player::StorageServer> embedded_;
  pid_t nginx_ = -1;
};

}  // namespace Moravel::Test
