#include "storage-server/Strangers.h"

#include <sys/socket.h>

namespace Moravel::Player {

uintptr_t Strangers::Enter(int socket) {
  const std::lock_guard lock(access_);
  if (sockets_.size() == kMost) {
    // Still open: it leaves, under this lock, before it is closed.
    ::shutdown(sockets_.begin()->second, SHUT_RDWR);
    sockets_.erase(sockets_.begin());
  }
  sockets_.emplace(++last_, socket);
  return last_;
}

void Strangers::Leave(uintptr_t connection) {
  const std::lock_guard lock(access_);
  sockets_.erase(connection);
}

}  // namespace Moravel::Player
