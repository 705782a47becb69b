#pragma once

#include <cstdint>

#include "Player/CacheUpdateQueue.h"
#include "Player/PreloadOrder.h"
#include "qel/Export.h"

namespace Moravel::Player {

// Fills the host's cache with compressed samples. Thread-safe.
class QEL_API IPreloader {
 public:
  enum class PreloadResult : uint32_t {
    // Not served: no queue was given anything. A log line says why; the same order may be given
    // again later.
    ERROR = 0,
    // A sample was read and handed on (or destroyed, when its queue had gone by then).
    SUCCESS_EXIST = 1,
    // Nothing is stored at that time: an output without a sample was handed on.
    SUCCESS_MISSING = 2,
  };

  virtual ~IPreloader() = default;

  // Serves the order before it returns, and delivers to the order's queue. A failure to read is an
  // exception; then no queue was given anything either.
  virtual PreloadResult Preload(const PreloadOrder& order) = 0;

  // The registry through which every delivery goes from then on; null for none.
  virtual void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues* queues) = 0;
};

}  // namespace Moravel::Player
