#include "storage-server/BadNetwork.h"

#include <algorithm>

namespace Moravel::Player {

namespace {

constexpr size_t kMaxBlockBytes = 64 << 10;
constexpr double kBlocksPerSecond = 20;

}  // namespace

BadNetwork::Fate BadNetwork::AwaitAnswer() {
  std::unique_lock lock(access_);
  if (stop_.wait_for(lock, options_.delay, [this] { return isStopped_; })) {
    return Fate::Dropped;
  }
  std::uniform_real_distribution<double> share;
  if (share(chance_) < options_.dropped) {
    return Fate::Dropped;
  }
  return share(chance_) < options_.truncated ? Fate::Truncated : Fate::Whole;
}

bool BadNetwork::AwaitBytes(size_t bytes) {
  std::unique_lock lock(access_);
  if (options_.bytesPerSecond <= 0) {
    return !isStopped_;
  }
  const std::chrono::duration<double> time(static_cast<double>(bytes) / options_.bytesPerSecond);
  freeAt_ = std::max(freeAt_, Clock::now()) + std::chrono::ceil<Clock::duration>(time);
  const Clock::time_point passed = freeAt_;  // others' bytes come behind these
  return !stop_.wait_until(lock, passed, [this] { return isStopped_; });
}

void BadNetwork::Stop() {
  const std::lock_guard lock(access_);
  isStopped_ = true;
  stop_.notify_all();
}

size_t BadNetwork::BlockSize() const {
  if (options_.bytesPerSecond <= 0) {
    return kMaxBlockBytes;
  }
  const double bytes = options_.bytesPerSecond / kBlocksPerSecond;
  return static_cast<size_t>(std::clamp(bytes, 1.0, static_cast<double>(kMaxBlockBytes)));
}

}  // namespace Moravel::Player
