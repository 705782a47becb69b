#include "playing/PlayingTrack.h"

namespace Moravel::Play {

Moment MomentOf(const PlayingTrack& track, const WorkerStatistics& workers) {
  return {Clock::now(), track.serving->asking.Seconds(), workers.decoding.Seconds(),
          workers.writing.Seconds()};
}

void Extend(TrackStatistics& statistics, const Moment& now) {
  if (now.time > statistics.end.time)
    statistics.end = now;
}

void CountDropped(PlayingTrack& track, int64_t sample) {
  ++track.statistics.dropped;
  track.statistics.losses.Tell(track.facts, PictureState::Late, sample, "",
                               "dropped, as it would have come after its time");
}

}  // namespace Moravel::Play
