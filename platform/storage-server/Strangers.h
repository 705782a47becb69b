#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>

namespace Moravel::Player {

// The connections of clients that have not named a track yet. Only so many are kept: the one that
// came first is cut for the next, so that whoever holds connections keeps nobody else out. Any
// thread may call.
class Strangers {
 public:
  static constexpr size_t kMost = 128;

  // A new connection. The result names it.
  uintptr_t Enter(int socket);
  // It has named a track, or its socket is about to be closed. Further calls do nothing.
  void Leave(uintptr_t connection);

 private:
  std::mutex access_;  // guards all below
  uintptr_t last_ = 0;
  std::map<uintptr_t, int> sockets_;  // by connection: in the order of their arrival
};

}  // namespace Moravel::Player
