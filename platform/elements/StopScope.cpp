#include "elements/StopScope.h"

#include <utility>

namespace qel {

namespace {

thread_local const StopScope* innermost = nullptr;

}  // namespace

StopScope::StopScope(std::stop_token stop)
    : stop_(std::move(stop)), outer_(std::exchange(innermost, this)) {}

StopScope::~StopScope() {
  innermost = outer_;
}

std::stop_token StopScope::Current() {
  return innermost == nullptr ? std::stop_token() : innermost->stop_;
}

}  // namespace qel
