#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <random>

namespace Moravel::Player {

// What a bad network does to the answers of a server: they come late, slowly, cut or not at all.
// The same answers meet the same fate in every run. Any thread may call.
class BadNetwork {
 public:
  struct Options {
    double bytesPerSecond = 0;           // of all answers together; 0: as fast as it goes
    std::chrono::milliseconds delay{0};  // before each answer
    double dropped = 0;                  // the share of the answers, 0 to 1, that do not come
    double truncated = 0;  // the share of those that do whose body is cut in the middle

    bool IsGood() const {
      return bytesPerSecond <= 0 && delay.count() <= 0 && dropped <= 0 && truncated <= 0;
    }
  };
  enum class Fate { Whole, Truncated, Dropped };

  explicit BadNetwork(const Options& options) : options_(options) {}

  // Waits for the delay. What becomes of the next answer; Dropped after Stop.
  Fate AwaitAnswer();
  // Waits until so many bytes have passed. False after Stop.
  bool AwaitBytes(size_t bytes);
  // Nobody waits any more.
  void Stop();

  // So many bytes take a moment at most: it is them that are to be sent at once.
  size_t BlockSize() const;

 private:
  using Clock = std::chrono::steady_clock;

  const Options options_;

  std::mutex access_;  // guards all below
  std::condition_variable stop_;
  bool isStopped_ = false;
  std::minstd_rand chance_;
  Clock::time_point freeAt_;  // when what was sent so far has passed
};

}  // namespace Moravel::Player
