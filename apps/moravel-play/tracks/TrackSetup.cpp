#include "tracks/TrackSetup.h"

#include "command/UsageError.h"
#include "tracks/TrackTimes.h"

namespace Moravel::Play {

namespace {

std::vector<Size> ChooseSizes(const Options& options, const Track& track) {
  if (!options.DecodesPictures())
    return {};
  if (!options.sizes.empty())
    return options.sizes;
  return {track.PictureSize()};
}

// From the first sample that is asked for to the end, where neither count nor duration is given.
int64_t CountSamples(const Options& options, const Track& track, int64_t first) {
  if (options.count)
    return *options.count;
  if (options.duration)
    return SamplesIn(*options.duration, track, first);
  if (first >= track.sampleCount) {
    throw UsageError("nothing to play at --start " + options.start.ToString() +
                     ": the last sample is at " + ToTimeCode(track, track.sampleCount - 1));
  }
  return track.sampleCount - first;
}

}  // namespace

Track ChooseSamples(Track track, const Options& options) {
  track.picturesPerSample = track.interlaced && options.fields ? 2 : 1;
  track.weaves = track.interlaced && options.frames;
  track.sizes = ChooseSizes(options, track);
  const int64_t first = SampleOf(options.start, track);
  track.sequence = PlaySequence(first, CountSamples(options, track, first), options.order);
  track.TimeOf(first + track.sequence.Count());  // refuses times that nobody can count
  return track;
}

}  // namespace Moravel::Play
