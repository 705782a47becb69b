#include "playing/Stopper.h"

namespace Moravel::Play {

void Stopper::Interrupt() {
  {
    const std::lock_guard<std::mutex> lock(reasonAccess_);
    interrupted_ = true;
  }
  stop_.request_stop();
}

void Stopper::OutputFailed(const std::string& reason) {
  {
    const std::lock_guard<std::mutex> lock(reasonAccess_);
    if (!outputFailure_)
      outputFailure_ = reason;
  }
  stop_.request_stop();
}

void Stopper::Fail(std::exception_ptr error) noexcept {
  {
    const std::lock_guard<std::mutex> lock(reasonAccess_);
    if (!failure_)
      failure_ = std::move(error);
  }
  stop_.request_stop();
}

void Stopper::RethrowFailure() const {
  const std::lock_guard<std::mutex> lock(reasonAccess_);
  if (failure_)
    std::rethrow_exception(failure_);
}

bool Stopper::Interrupted() const {
  const std::lock_guard<std::mutex> lock(reasonAccess_);
  return interrupted_;
}

std::optional<std::string> Stopper::OutputFailure() const {
  const std::lock_guard<std::mutex> lock(reasonAccess_);
  return outputFailure_;
}

}  // namespace Moravel::Play
