#include "command/Interrupt.h"

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "command/ExitCode.h"

namespace Moravel::Play {

namespace {

std::atomic<bool> interrupted = false;

void AwaitSignals(const sigset_t& signals) {
  for (int signal = 0;;) {
    if (::sigwait(&signals, &signal) == 0 && interrupted.exchange(true))
      ::_exit(kExitInterrupted);
  }
}

}  // namespace

// All threads to come keep them blocked, too: none is interrupted in what it does.
void CatchSignals() {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGINT);
  ::sigaddset(&signals, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread([signals] { AwaitSignals(signals); }).detach();
  struct sigaction action = {};
  action.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &action, nullptr);
}

bool Interrupted() {
  return interrupted;
}

}  // namespace Moravel::Play
