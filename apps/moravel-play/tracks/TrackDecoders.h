#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <tuple>
#include <vector>

#include "Player/QELMultiResDecoder.h"
#include "Player/QELSampleDecoder.h"
#include "command/Options.h"
#include "qel/Elements.h"
#include "tracks/Track.h"

namespace Moravel::Play {

// The decoders of one track for one decode worker: a dispatcher with one decoder for each size.
class TrackDecoders {
 public:
  // `source` is set to the track. Throws what the framework throws.
  TrackDecoders(const qel::MediaSourcePtr& source, qel::FourCC format,
                const std::vector<Size>& sizes);

  Player::ISampleDecoder& Dispatcher() { return *dispatcher_; }

 private:
  std::vector<std::unique_ptr<Player::QELSampleDecoder>> decoders_;
  std::unique_ptr<Player::QELMultiResDecoder> dispatcher_;  // the last: it borrows the decoders
};

// A worker's number gives its decoders.
using DecodersOfWorkers = std::vector<TrackDecoders>;

// The decoders of all tracks. Tracks whose pictures look the same share theirs, so that many tracks
// take no more memory than their samples. Any thread may call it.
class DecoderPool {
 public:
  DecoderPool(int workers, qel::FourCC format) : workers_(workers), format_(format) {}

  // `source` is set to the track, and belongs to the caller meanwhile.
  std::shared_ptr<DecodersOfWorkers> For(const Track& track, const qel::MediaSourcePtr& source);

 private:
  using Looks = std::tuple<int, int, bool>;  // size of a picture, and whether it is a field

  const int workers_;
  const qel::FourCC format_;
  std::mutex decodersAccess_;  // guards decoders_
  std::map<Looks, std::shared_ptr<DecodersOfWorkers>> decoders_;
};

}  // namespace Moravel::Play
