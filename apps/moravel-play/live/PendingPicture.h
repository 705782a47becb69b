#pragma once

#include <future>
#include <memory>
#include <utility>
#include <vector>

#include "live/LiveOrder.h"

namespace Moravel::Play {

// An order and whoever waits for its picture: answered exactly once, at the latest when it is
// destroyed. Handed on from stage to stage; used by one thread at a time.
class PendingPicture {
 public:
  explicit PendingPicture(LiveOrder order) : order_(std::move(order)) {}
  ~PendingPicture() {
    if (!answered_)
      Answer({.reason = "the viewer is ending"});
  }
  PendingPicture(const PendingPicture&) = delete;
  PendingPicture& operator=(const PendingPicture&) = delete;

  const LiveOrder& Order() const { return order_; }
  Clock::duration Age() const { return Clock::now() - since_; }
  std::future<LivePicture> Future() { return promise_.get_future(); }

  void Answer(LivePicture picture) {
    answered_ = true;
    picture.cached = cached;
    picture.latency = Age();
    promise_.set_value(std::move(picture));
  }

  int32_t priority = 0;  // the larger, the earlier
  bool cached = false;

 private:
  const LiveOrder order_;
  const Clock::time_point since_ = Clock::now();
  std::promise<LivePicture> promise_;
  bool answered_ = false;
};
using PendingPicturePtr = std::unique_ptr<PendingPicture>;
using PendingPictureList = std::vector<PendingPicturePtr>;

inline void AnswerStale(const PendingPictureList& pictures) {
  for (const PendingPicturePtr& picture : pictures)
    picture->Answer({.state = LivePicture::State::Stale});
}

}  // namespace Moravel::Play
