#include "command/Host.h"

#include "command/Interrupt.h"
#include "elements/BuiltinElements.h"
#include "host/HostLogging.h"
#include "playing/FrameworkLines.h"
#include "qelCore/LoggerWriter.h"

namespace Moravel::Play {

void StartHost(orl::mv::logging::ILogger::Level logLevel) {
  CatchSignals();
  orl::mv::logging::SetLogLevel(logLevel);
  qel::SetCurrentLoggerWriter(
      std::make_shared<FrameworkLines>(orl::mv::logging::CreateFrameworkLogWriter()));
  qel::RegisterBuiltinElements();
}

}  // namespace Moravel::Play
