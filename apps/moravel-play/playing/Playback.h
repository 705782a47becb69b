#pragma once

#include "command/Options.h"
#include "playing/OrderSchedule.h"
#include "playing/Sinks.h"
#include "playing/TrackList.h"
#include "playing/WorkQueue.h"

namespace Moravel::Play {

// What the threads of a playback share. All of it outlives them.
struct Playback {
  const Options& options;
  TrackList& tracks;
  DecoderPool& decoders;
  OrderSchedule& schedule;
  WorkQueue& queue;
  const PictureSinks& sinks;
  WorkerStatistics& workers;
  Stopper& stopper;
};

}  // namespace Moravel::Play
