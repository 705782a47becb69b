#pragma once

#include <stdexcept>

#include "qel/Export.h"

namespace qel {

// The framework error: a broken expectation about the framework, or a failure that one of its
// elements reports. Carries its message and nothing else.
class QEL_API QELRuntimeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace qel
