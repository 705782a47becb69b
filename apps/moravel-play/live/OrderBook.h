#pragma once

#include <map>
#include <optional>
#include <stop_token>
#include <string>

#include "Player/PreloadOrder.h"
#include "live/PendingPicture.h"
#include "tracks/Track.h"

namespace Moravel::Play {

// The priority of an order, which has that number among all orders.
int32_t PriorityOf(LiveOrder::Kind kind, int32_t serial);

// The orders that wait for samples of one server, and the samples that are fetched ahead of orders:
// which one is to be read next, and which are not to be read any more. Used by one thread at a
// time.
//
// The newest picture to show goes first, then playbacks in the order in which they came, each from
// the picture that is due first, then thumbnails, then what lies near to what is looked at. A
// sample is read once, whoever waits for it.
class OrderBook {
 public:
  // Enters an order that has its priority. Returns those that it makes stale, or the order itself
  // when it is stale.
  PendingPictureList Add(PendingPicturePtr picture, const Track& track);
  // A sample of the order's lane that will be wanted next; stale when the order is.
  void AddAhead(const LiveOrder& order, const Track& track, int64_t sample, int32_t priority);
  // A playback is there now: forgets what was to be fetched ahead of it before that.
  void DropPassed(const LiveOrder& order);
  // A sample near to what is looked at. Forgotten with the next order to show or to play.
  void AddNearby(const Track& track, int64_t sample);

  struct Read {
    SampleKey key;
    Player::PreloadOrder order;  // without a queue
    std::stop_source stop;       // of this reading
  };
  enum class Reader {
    Any,       // takes everything
    Sequence,  // of several: what is read one after the other goes first, and through it alone
    Single,    // the others of several
  };
  // The next sample to read, which counts as being read from then on; nothing: there is none.
  std::optional<Read> Next(Reader reader);
  // The sample was read, or could not be: returns who waits for it, also those that became stale
  // meanwhile.
  PendingPictureList Finish(const SampleKey& key);
  // Its reading was stopped: returns those that became stale. It is read later for whoever has come
  // to wait for it since.
  PendingPictureList PutBack(const SampleKey& key);
  // Of the readings that began before that time: returns who became stale while they went on, and
  // requests the stop of those that nobody else waits for, or that are wanted less than something
  // that waits to be read.
  PendingPictureList StopStalled(Clock::time_point begunBefore);

  // Enters nothing, and drops what the order makes stale.
  PendingPictureList DropStale(const LiveOrder& newer);
  // Forgets what nobody waits for yet.
  void DropAhead();
  // Hands over all who wait.
  void TakeAll(PendingPictureList& pictures);
  bool Holds(const SampleKey& key) const { return entries_.contains(key); }

 private:
  enum class Wanted { ByNobody, AsThumbnail, AsPicture };

  struct Entry {
    explicit Entry(const Player::PreloadOrder& preload) : order(preload) {}

    Player::PreloadOrder order;
    PendingPictureList waiting;
    std::optional<LiveOrder> ahead;  // of which order it lies ahead
    bool isNearby = false;
    bool isReading = false;
    Clock::time_point readSince;
    std::stop_source stop;
    PendingPictureList outdated;  // who waited when a newer order came while it was being read

    Wanted HowWanted() const;
    const LiveOrder* Playback() const;  // null: of none
    bool IsSequence() const;
    bool IsForgotten() const { return !isReading && waiting.empty() && !ahead && !isNearby; }
    void DropStale(const LiveOrder& newer, PendingPictureList& stale);
  };

  using Entries = std::map<SampleKey, Entry>;

  Entries::iterator FirstOfItsPlayback(Entries::iterator chosen);
  Entry& Enter(const Track& track, int64_t sample, int32_t priority);
  bool IsStale(const LiveOrder& order) const;
  void EraseForgotten();

  Entries entries_;
};

}  // namespace Moravel::Play
