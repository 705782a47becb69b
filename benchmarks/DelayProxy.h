#pragma once

#include <chrono>
#include <cstdint>
#include <thread>

namespace Moravel::Bench {

// A link to a server of this machine on which every byte takes `delay` each way. One thread, any
// number of connections, which share the rate at which the server's bytes arrive.
class DelayProxy {
 public:
  // `bytesPerSecond`: 0 for what the machine can do.
  DelayProxy(uint16_t serverPort, std::chrono::microseconds delay, int64_t bytesPerSecond = 0);
  ~DelayProxy();

  uint16_t Port() const { return port_; }

 private:
  void Run(std::stop_token stop);

  const uint16_t serverPort_;
  const std::chrono::microseconds delay_;
  const int64_t bytesPerSecond_;
  int listener_;
  uint16_t port_ = 0;
  std::jthread thread_;
};

}  // namespace Moravel::Bench
