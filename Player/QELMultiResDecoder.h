#pragma once

#include <boost/thread/shared_mutex.hpp>
#include <map>
#include <mutex>
#include <utility>

#include "Player/Export.h"
#include "Player/ISampleDecoder.h"
#include "Player/QELSampleDecoder.h"
#include "logging/ILogger.h"

namespace Moravel::Player {

// Routes each decode order to the decoder registered for exactly the order's width and height.
//
// Decode, AddDecoder and RemoveDecoder may be called from any threads at once: decodes run in
// parallel, a registration change waits for the decodes that run and holds back new ones meanwhile,
// so that no stream of orders, however dense, keeps it waiting for longer than one decode takes.
// From within a decode (the element, the logger) nobody may change registrations or decode through
// the same dispatcher: both would wait for the decode that they are part of.
//
// The decoders stay the host's, which destroys one only after removing it here, or after destroying
// the dispatcher. The dispatcher itself is destroyed when none of its operations runs.
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
  template <typename Lock>
  Lock Acquire();

  std::map<std::pair<int, int>, QELSampleDecoder*> decoders_;  // by width and height; borrowed
  boost::shared_mutex decodersAccess_;  // shared for decoding, exclusive for registration
  // Held only while decodersAccess_ is being acquired, by everybody: whoever waits for the decodes
  // to end holds back those who come later. The shared mutex alone lets them pass.
  std::mutex gate_;
  const orl::mv::logging::ILogger& logger_;
};

}  // namespace Moravel::Player
