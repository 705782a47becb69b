#include "command/Interrupt.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>

#include "command/ExitCode.h"

namespace Moravel::Play {

namespace {

// Signal handlers reach nothing but what is global.
std::atomic<bool> interrupted = false;
static_assert(std::atomic<bool>::is_always_lock_free);

void OnSignal(int) {
  if (interrupted.exchange(true))
    ::_exit(kExitInterrupted);
}

}  // namespace

void CatchSignals() {
  struct sigaction action = {};
  action.sa_handler = OnSignal;
  action.sa_flags = SA_RESTART;
  ::sigaction(SIGINT, &action, nullptr);
  ::sigaction(SIGTERM, &action, nullptr);
  action.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &action, nullptr);
}

bool Interrupted() {
  return interrupted;
}

}  // namespace Moravel::Play
