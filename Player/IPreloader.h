#pragma once

#include <cstdint>

#include "Player/CacheUpdateQueue.h"
#include "Player/PreloadOrder.h"
#include "qel/Export.h"

namespace Moravel::Player {

// Fills the host's cache with compressed samples.
class QEL_API IPreloader {
 public:
  enum class PreloadResult : uint32_t {
    ERROR = 0,            // not served; no queue was given anything
    SUCCESS_EXIST = 1,    // a sample was read and handed on
    SUCCESS_MISSING = 2,  // nothing at that time; an output without a sample was handed on
  };

  virtual ~IPreloader() = default;

  virtual PreloadResult Preload(const PreloadOrder& order) = 0;

  // The registry through which every delivery goes from then on; null for none.
  virtual void SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues* queues) = 0;
};

}  // namespace Moravel::Player
