#pragma once

#include <boost/thread/shared_mutex.hpp>
#include <map>
#include <utility>

#include "Player/Export.h"
#include "Player/ISampleDecoder.h"
#include "Player/QELSampleDecoder.h"
#include "logging/ILogger.h"

namespace Moravel::Player {

// Routes each decode order to the decoder registered for exactly the order's width and height.
//
// Decode, AddDecoder and RemoveDecoder may be called from any threads at once: decodes run in
// parallel, a registration change waits for running decodes and holds back new ones meanwhile.
// A registered decoder must not change registrations from within its Decode. The decoders stay
// the host's, which destroys one only after removing it here, or after destroying the dispatcher.
class MORAVEL_PLAYER_API QELMultiResDecoder : public ISampleDecoder {
 public:
  QELMultiResDecoder();
  ~QELMultiResDecoder() override;

  // What the chosen decoder returns or throws; null, with a warning line, when there is none.
  ISample* Decode(const DecodeOrder& order) override;

  // A resolution that has a decoder keeps it. A null decoder is ignored with a warning line.
  void AddDecoder(int width, int height, QELSampleDecoder* decoder);
  // Once it returns, no decode through this dispatcher uses the removed decoder any more.
  void RemoveDecoder(int width, int height);

 private:
  std::map<std::pair<int, int>, QELSampleDecoder*> decoders_;  // by width and height; borrowed
  boost::shared_mutex decodersAccess_;  // shared for decoding, exclusive for registration
  const orl::mv::logging::ILogger& logger_;
};

}  // namespace Moravel::Player
