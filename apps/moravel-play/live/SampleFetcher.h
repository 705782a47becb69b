#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "live/LiveTracks.h"
#include "live/OrderBook.h"
#include "live/RecentTimes.h"
#include "live/SampleStore.h"

namespace Moravel::Play {

// What was fetched so far. Rates come of the difference of two of them.
struct FetchFigures {
  int64_t orders = 0;
  int64_t stale = 0;
  int64_t cacheHits = 0;
  int64_t cacheSamples = 0;
  int64_t cacheBytes = 0;
  int64_t cacheMaxBytes = 0;
  int64_t reads = 0;
  int64_t bytesRead = 0;
  double secondsReading = 0;  // while at least one read was under way
  struct Server {
    std::string name;
    std::string failure;  // of its last read; empty: it went well
  };
  std::vector<Server> servers;
};

// Brings the samples of orders: from the store of those that were seen, else from their server,
// through several connections at a time. Newest orders go first, and those that became stale never
// reach a preloader. What a playback needs next is fetched ahead of it through one connection,
// whose source can read ahead; what lies near the last picture shown, when nobody has ordered for a
// while. A sample that nobody waits for any more is kept all the same; when its reading, or that of
// a thumbnail, takes much longer than usual and something more urgent waits, it is stopped.
// Thread-safe.
class SampleFetcher {
 public:
  // `sample` is empty where there is none (Missing), or `failure` says why.
  struct Fetched {
    PendingPicturePtr picture;
    SamplePtr sample;
    std::string failure;
  };
  // Takes what was fetched, from any thread. It does not wait for anything.
  using Taker = std::function<void(Fetched)>;

  struct Limits {
    int64_t cacheBytes;
    int connections;  // to each server
  };
  SampleFetcher(std::vector<LiveServer> servers, const Limits& limits, Taker taker);
  ~SampleFetcher() { Stop(); }

  // Stops what is being read, and ends the threads. What waits is answered as failed, and so is
  // what is ordered from then on.
  void Stop();

  // By the track's number; null when there is none.
  const Track* FindTrack(int index) const;
  const std::vector<LiveServer>& Servers() const { return servers_; }

  void Order(PendingPicturePtr picture);

  FetchFigures Figures() const;

 private:
  // What is under way with one server. The fetcher's lock guards it.
  struct Line {
    OrderBook book;
    std::condition_variable_any changed;
    int64_t changes = 0;
    std::optional<LiveOrder> nearby;  // around which samples may be fetched when it is calm
    std::string failure;
    RecentTimes readings;
  };

  // What the thread of one connection does.
  void Serve(size_t server, int connection, std::stop_token stop);
  // Waits for something to read; nothing after the stop.
  std::optional<OrderBook::Read> WaitForRead(Line& line, OrderBook::Reader reader,
                                             std::stop_token stop);
  void AddNearby(Line& line);
  void AddAhead(Line& line, const LiveOrder& order, const Track& track);
  // Stops readings that stall and hold up something more urgent; whoever became stale meanwhile is
  // told so, and can order anew.
  void Watch(std::stop_token stop);
  PendingPictureList StopStalled();  // under the lock
  void Finish(Line& line, const SampleKey& key, LiveConnection::Result result);
  void PutBack(Line& line, const SampleKey& key);
  void CountReading(Line& line, Clock::duration time);
  int64_t MaxAhead() const;

  const std::vector<LiveServer> servers_;
  const Limits limits_;
  const Taker taker_;

  mutable std::mutex access_;                 // guards all that follows but the threads
  std::vector<std::unique_ptr<Line>> lines_;  // as servers_
  SampleStore store_;
  FetchFigures figures_;
  Clock::time_point lastOrder_;
  bool isStopped_ = false;
  int32_t serial_ = 0;  // of orders
  int reading_ = 0;
  std::condition_variable_any isReading_;
  Clock::time_point readingSince_;

  std::vector<std::jthread> threads_;  // the last: they use all of the above
};

}  // namespace Moravel::Play
