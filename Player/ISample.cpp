#include "Player/ISample.h"

#include <boost/thread/locks.hpp>
#include <limits>

namespace Moravel::Player {

namespace {

using Limits = std::numeric_limits<int64_t>;

int64_t SaturatingAdd(int64_t a, int64_t b) {
  int64_t sum = 0;
  if (__builtin_add_overflow(a, b, &sum))
    return b < 0 ? Limits::min() : Limits::max();
  return sum;
}

int64_t SaturatingSubtract(int64_t a, int64_t b) {
  int64_t difference = 0;
  if (__builtin_sub_overflow(a, b, &difference))
    return b < 0 ? Limits::max() : Limits::min();
  return difference;
}

}  // namespace

ISample::~ISample() = default;

int64_t ISample::Protect(int64_t protection) {
  const boost::unique_lock<boost::shared_mutex> lock(protectionAccess_);
  protectionCounter_ = SaturatingAdd(protectionCounter_, protection);
  return protectionCounter_;
}

int64_t ISample::Unprotect(int64_t protection) {
  const boost::unique_lock<boost::shared_mutex> lock(protectionAccess_);
  const int64_t lowered = SaturatingSubtract(protectionCounter_, protection);
  protectionCounter_ = lowered < 0 ? 0 : lowered;
  return protectionCounter_;
}

int64_t ISample::GetProtectionCounter() {
  const boost::shared_lock<boost::shared_mutex> lock(protectionAccess_);
  return protectionCounter_;
}

}  // namespace Moravel::Player
