#pragma once

#include <microhttpd.h>

#include <cstddef>
#include <deque>
#include <mutex>

namespace Moravel::Player {

// The connections that have not asked for anything yet that they may have. Only so many are kept:
// the one that came first is cut for the next, so that whoever holds connections keeps nobody else
// out. Any thread may call.
class Strangers {
 public:
  static constexpr size_t kMost = 128;

  // For MHD_OPTION_NOTIFY_CONNECTION, with a Strangers: a connection enters when it is opened.
  static void Notify(void* strangers, MHD_Connection* connection, void** context,
                     MHD_ConnectionNotificationCode code);
  // It has asked for what it may have, or is about to be closed. Further calls do nothing.
  void Leave(MHD_Connection* connection);

 private:
  void Enter(MHD_Connection* connection);

  std::mutex access_;                        // guards all below
  std::deque<MHD_Connection*> connections_;  // in the order of their arrival
};

}  // namespace Moravel::Player
