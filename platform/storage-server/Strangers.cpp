#include "storage-server/Strangers.h"

#include <sys/socket.h>

namespace Moravel::Player {

namespace {

// Whoever serves the connection finds it ended, and closes it.
void Cut(MHD_Connection* connection) {
  ::shutdown(::MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd,
             SHUT_RDWR);
}

}  // namespace

void Strangers::Notify(void* strangers, MHD_Connection* connection, void**,
                       MHD_ConnectionNotificationCode code) {
  auto* const self = static_cast<Strangers*>(strangers);
  if (code == MHD_CONNECTION_NOTIFY_STARTED)
    self->Enter(connection);
  else
    self->Leave(connection);
}

void Strangers::Enter(MHD_Connection* connection) {
  const std::lock_guard lock(access_);
  if (connections_.size() == kMost) {
    Cut(connections_.front());  // still open: it leaves, under this lock, before it is closed
    connections_.pop_front();
  }
  connections_.push_back(connection);
}

void Strangers::Leave(MHD_Connection* connection) {
  const std::lock_guard lock(access_);
  std::erase(connections_, connection);
}

}  // namespace Moravel::Player
