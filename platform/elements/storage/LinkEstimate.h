#pragma once

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
  // Bytes that came in a row. Sums of bytes and of time: what lay in a buffer already, and came in
  // no time, weighs little.
  void Received(int64_t bytes, Duration duration) {
    if (bytes < kLeastBytes)
      return;
    bytes_ = bytes_ - bytes_ / 8 + bytes;
    duration_ = duration_ - duration_ / 8 + duration;
  }

  // Bytes that arrive in the time that a request costs when so many are under way side by side.
  int64_t BytesInsteadOfARequest(int requests) const {
    return duration_ <= Duration()
               ? 0
               : static_cast<int64_t>(static_cast<double>(bytes_) *
                                      static_cast<double>(latency_.count()) /
                                      static_cast<double>(duration_.count()) / requests);
  }

 private:
  static constexpr int64_t kLeastBytes = 64 << 10;

  Duration latency_{};
  int64_t bytes_ = 0;
  Duration duration_{};
};

}  // namespace qel
