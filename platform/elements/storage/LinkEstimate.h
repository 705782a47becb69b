#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

namespace qel {

// How far away a server is, and how fast what it sends arrives; from what was seen lately. A value.
class LinkEstimate {
 public:
  using Duration = std::chrono::steady_clock::duration;

  // From a request to the first byte of its answer.
  void Answered(Duration latency) {
    latency_ = latency_ == Duration() ? latency : (7 * latency_ + latency) / 8;
  }
  // Bytes that came in a row. Less than the link can do is no news: the fastest of the last ones
  // counts.
  void Received(int64_t bytes, Duration duration) {
    using Microseconds = std::chrono::microseconds;
    const auto us = std::chrono::duration_cast<Microseconds>(duration).count();
    if (bytes < kLeastBytes || us <= 0)
      return;
    bytesPerSecond_ = std::max(bytes * 1'000'000 / us, bytesPerSecond_ - bytesPerSecond_ / 8);
  }

  // Bytes that arrive in the time that a request costs when so many are under way side by side.
  int64_t BytesInsteadOfARequest(int requests) const {
    using Microseconds = std::chrono::duration<double, std::micro>;
    const double seconds = Microseconds(latency_).count() / 1e6;
    return static_cast<int64_t>(static_cast<double>(bytesPerSecond_) * seconds / requests);
  }

 private:
  static constexpr int64_t kLeastBytes = 64 << 10;

  Duration latency_{};
  int64_t bytesPerSecond_ = 0;
};

}  // namespace qel
