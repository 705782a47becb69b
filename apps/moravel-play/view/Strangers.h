#pragma once

#include <deque>
#include <mutex>

struct MHD_Connection;

namespace Moravel::Play {

// The connections that have not asked for anything that they may have. Of too many, the one that
// came first is cut: who floods the port keeps nobody out who asks at once. Thread-safe.
class Strangers {
 public:
  void Enter(MHD_Connection* connection);
  // It was let in, or is closed. Others than strangers may leave, too.
  void Leave(MHD_Connection* connection);

 private:
  std::mutex access_;
  std::deque<MHD_Connection*> waiting_;  // in the order in which they came
};

}  // namespace Moravel::Play
