#pragma once

#include <future>
#include <map>
#include <mutex>
#include <set>
#include <vector>

#include "live/PictureMaker.h"
#include "live/RecentTimes.h"
#include "live/SampleFetcher.h"

namespace Moravel::Play {

// Pictures of tracks for people who look at them now: they jump, drag, step and play.
//
// Orders go through SampleFetcher and PictureMaker. Every order is answered, whatever happens to
// its server, and the next one works as soon as the server does. Thread-safe.
class LiveEngine {
 public:
  struct Limits {
    int64_t cacheBytes = int64_t{256} << 20;  // compressed samples, of all tracks together
    int connections = 4;                      // to each server
    int decoders = 2;                         // threads
  };
  LiveEngine(std::vector<LiveServer> servers, const Limits& limits);

  // Ends all work within a second; every order is answered, also those that come later. One thread.
  void Stop() {
    fetcher_.Stop();
    maker_.Stop();
  }

  // By the track's number; null when there is none.
  const Track* FindTrack(int index) const { return fetcher_.FindTrack(index); }
  const std::vector<LiveServer>& Servers() const { return fetcher_.Servers(); }

  // The sample number is one of the track's, the size within the limits of the decoder.
  std::future<LivePicture> Order(LiveOrder order);

  struct Figures {
    FetchFigures fetching;
    double latencyP50Ms = 0;  // of the last pictures that were shown on order
    double latencyP99Ms = 0;
    double decodeP50Ms = 0;
    int64_t pictures = 0;
  };
  Figures CurrentFigures() const;

  // Samples whose pictures turned out not to be whole, so far.
  struct Marks {
    std::set<int64_t> damaged;  // or not decodable
    std::set<int64_t> missing;
  };
  Marks MarksOf(int track) const;

 private:
  void Take(SampleFetcher::Fetched fetched);
  void Note(const LiveOrder& order, const LivePicture& picture);

  mutable std::mutex notesAccess_;  // guards the next four
  RecentTimes latencies_;
  RecentTimes decodings_;
  int64_t pictures_ = 0;
  std::map<int, Marks> marks_;

  PictureMaker maker_;
  SampleFetcher fetcher_;  // the last: it hands over to all of the above
};

}  // namespace Moravel::Play
