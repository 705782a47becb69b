#pragma once

#include <chrono>
#include <cstdint>
#include <thread>

namespace Moravel::Bench {

// A link to a server of this machine on which every byte takes `delay` each way. One thread, any
// number of connections, no limit of the rate but the machine's.
class DelayProxy {
 public:
  DelayProxy(uint16_t serverPort, std::chrono::microseconds delay);
  ~DelayProxy();

  uint16_t Port() const { return port_; }

 private:
  void Run(std::stop_token stop);

  const uint16_t serverPort_;
  const std::chrono::microseconds delay_;
  int listener_;
  uint16_t port_ = 0;
  std::jthread thread_;
};

}  // namespace Moravel::Bench
