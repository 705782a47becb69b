#pragma once

#include "Player/DecodeOrder.h"
#include "Player/ISample.h"
#include "qel/Export.h"

namespace Moravel::Player {

// Turns encoded samples into pictures. Thread-safe.
class QEL_API ISampleDecoder {
 public:
  virtual ~ISampleDecoder() = default;

  // A new sample that the caller owns, or null when the order cannot be served (a log line says
  // why). A picture that cannot be decoded is an exception.
  virtual ISample* Decode(const DecodeOrder& order) = 0;
};

}  // namespace Moravel::Player
