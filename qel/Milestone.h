#pragma once

#include <memory>
#include <string>

#include "qel/Export.h"

namespace qel {

// A stretch of work that the framework takes note of; it lasts as long as the object, which stays
// on the thread that made it.
class QEL_API IMilestone {
 public:
  virtual ~IMilestone() = default;
};
using MilestonePtr = std::unique_ptr<IMilestone>;

QEL_API MilestonePtr CreateMilestone(std::string description);

}  // namespace qel
