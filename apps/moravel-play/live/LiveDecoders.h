#pragma once

#include <list>

#include "live/LiveOrder.h"
#include "live/SampleStore.h"
#include "tracks/Track.h"
#include "tracks/TrackDecoders.h"

namespace Moravel::Play {

// Decodes any picture of any track at any size, with decoders that are made when they are needed
// and kept while they are used. For one decode thread.
class LiveDecoders {
 public:
  // Shown, Damaged, Missing (the sample has no such field) or Broken.
  LivePicture Decode(const LiveOrder& order, const Track& track, Player::ISample& sample);

 private:
  struct Known {
    int track;
    Size size;
    TrackDecoders decoders;
  };

  Player::ISampleDecoder& DecodersFor(const Track& track, const Size& size);

  std::list<Known> known_;  // the one used last first
};

}  // namespace Moravel::Play
