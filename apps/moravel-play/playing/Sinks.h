#pragma once

#include <memory>
#include <vector>

#include "playing/Stopper.h"
#include "sinks/OutputFile.h"
#include "sinks/Picture.h"

namespace Moravel::Play {

using PictureSinks = std::vector<std::unique_ptr<IPictureSink>>;

// Calls all sinks; one that cannot write ends the playback, for the reason that it gives.
template <typename Call>
void ForEachSink(const PictureSinks& sinks, Stopper& stopper, Call call) {
  for (const auto& sink : sinks) {
    try {
      call(*sink);
    } catch (const ClosedPipe&) {
      stopper.OutputClosed();
    } catch (const std::exception& error) {
      stopper.OutputFailed(error.what());
    }
  }
}

}  // namespace Moravel::Play
