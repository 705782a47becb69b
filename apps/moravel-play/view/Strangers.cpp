#include "view/Strangers.h"

#include <microhttpd.h>
#include <sys/socket.h>

namespace Moravel::Play {

namespace {

constexpr size_t kMostWaiting = 32;

// Whoever serves the connection finds it ended, and closes it.
void Cut(MHD_Connection* connection) {
  const MHD_ConnectionInfo* const info =
      ::MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
  if (info != nullptr)
    ::shutdown(info->connect_fd, SHUT_RDWR);
}

}  // namespace

void Strangers::Enter(MHD_Connection* connection) {
  const std::lock_guard<std::mutex> lock(access_);
  waiting_.push_back(connection);
  if (waiting_.size() <= kMostWaiting)
    return;
  Cut(waiting_.front());
  waiting_.pop_front();
}

void Strangers::Leave(MHD_Connection* connection) {
  const std::lock_guard<std::mutex> lock(access_);
  std::erase(waiting_, connection);
}

}  // namespace Moravel::Play
