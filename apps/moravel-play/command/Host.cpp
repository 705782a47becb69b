#include "command/Host.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <memory>

#include "command/ExitCode.h"
#include "command/Interrupt.h"
#include "elements/BuiltinElements.h"
#include "host/HostLogging.h"
#include "playing/FrameworkLines.h"
#include "qelCore/LoggerWriter.h"

namespace Moravel::Play {

namespace {

// Each file that is played takes a descriptor, and the limit that programs start with is low.
void AllowManyFiles() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
  }
}

}  // namespace

void OpenStandardDescriptors() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/dev/null", O_RDONLY) < 0)
      ::_exit(kExitUnreadable);
  }
}

void StartHost(orl::mv::logging::ILogger::Level logLevel, int64_t beginningBytes) {
  CatchSignals();
  AllowManyFiles();
  orl::mv::logging::SetLogLevel(logLevel);
  qel::SetCurrentLoggerWriter(
      std::make_shared<FrameworkLines>(orl::mv::logging::CreateFrameworkLogWriter()));
  qel::RegisterBuiltinElements(beginningBytes);
}

}  // namespace Moravel::Play
