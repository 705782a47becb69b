#pragma once

#include <stop_token>
#include <string>

#include "Player/QELPreloader.h"
#include "live/SampleStore.h"
#include "tracks/TrackSource.h"

namespace Moravel::Play {

// One connection to a storage server: a preloader with one source. Used by one thread at a time;
// what it reads ends at once when the stop of the call is requested.
class LiveConnection {
 public:
  LiveConnection();

  // Opens the track, when it is not open. Throws what the framework throws.
  void Open(const Player::TrackId& id, std::stop_token stop);
  // What is known of the track opened last.
  qel::InfoContainerConstPtr Describe() const { return source_.Media()->GetDefinedOutput(""); }

  struct Result {
    SamplePtr sample;  // empty without a failure: the recorder dropped it
    int64_t bytes = 0;
    std::string failure;  // empty: there was none
  };
  // `order` comes without a queue.
  Result Read(Player::PreloadOrder order, std::stop_token stop);

 private:
  // Takes the one sample of an order.
  struct Inbox : Player::CacheUpdateQueue {
    void Push(const Player::Output& output) override { sample.reset(output.sample_); }
    SamplePtr sample;
  };

  Inbox inbox_;
  TrackSource source_;
  Player::QELPreloader preloader_;
  bool hasSource_ = false;
};

}  // namespace Moravel::Play
