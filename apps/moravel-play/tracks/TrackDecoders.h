#pragma once

#include <memory>
#include <vector>

#include "Player/QELMultiResDecoder.h"
#include "Player/QELSampleDecoder.h"
#include "command/Options.h"
#include "qel/Elements.h"

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

}  // namespace Moravel::Play
