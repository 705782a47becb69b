#pragma once

#include "qel/QELRuntimeError.h"

namespace qel {

// A track's file does not hold what its index says: asking for the sample again brings the same
// answer, while others can be read.
class FileFaultError : public QELRuntimeError {
 public:
  using QELRuntimeError::QELRuntimeError;
};

}  // namespace qel
