#include "live/SampleFetcher.h"

#include <algorithm>
#include <utility>

namespace Moravel::Play {

namespace {

// Samples that a playback has in the store before it wants them: its pictures then wait for
// decoding alone, whatever the link's delay. Never more than this part of the store.
constexpr int64_t kMaxAhead = 24;
constexpr int64_t kPartOfStoreAhead = 4;
// What is fetched around the last picture shown, and how long nobody must have ordered before.
constexpr int64_t kNearbySamples = 8;
constexpr std::chrono::milliseconds kCalm{100};

// A reading is stopped for something more urgent when it takes longer, and so many times longer
// than usual.
constexpr std::chrono::milliseconds kPatience{300};
constexpr double kTimesUsual = 4;
constexpr std::chrono::milliseconds kWatchEvery{50};

using Kind = LiveOrder::Kind;

bool IsInside(const Track& track, int64_t sample) {
  return sample >= 0 && sample < track.sampleCount;
}

// An order that finds its track open waits for no index. What cannot be opened is tried again then.
void OpenAll(const std::vector<Track>& tracks, LiveConnection& reader,
             const std::stop_token& stop) {
  for (const Track& track : tracks) {
    try {
      reader.Open(track.id, stop);
    } catch (const std::exception&) {
    }
  }
}

OrderBook::Reader ReaderOf(int connection, int connections) {
  if (connections == 1)
    return OrderBook::Reader::Any;
  return connection == 0 ? OrderBook::Reader::Sequence : OrderBook::Reader::Single;
}

}  // namespace

SampleFetcher::SampleFetcher(std::vector<LiveServer> servers, const Limits& limits, Taker taker)
    : servers_(std::move(servers)),
      limits_(limits),
      taker_(std::move(taker)),
      store_(limits.cacheBytes) {
  for (size_t server = 0; server < servers_.size(); ++server)
    lines_.push_back(std::make_unique<Line>());
  for (size_t server = 0; server < servers_.size(); ++server) {
    for (int connection = 0; connection < limits_.connections; ++connection) {
      threads_.emplace_back(
          [=, this](std::stop_token stop) { Serve(server, connection, std::move(stop)); });
    }
  }
  threads_.emplace_back([this](std::stop_token stop) { Watch(std::move(stop)); });
}

void SampleFetcher::Stop() {
  for (std::jthread& thread : threads_)
    thread.request_stop();
  threads_.clear();
  PendingPictureList left;  // answered by their destruction, without the lock
  const std::lock_guard<std::mutex> lock(access_);
  isStopped_ = true;
  for (const auto& line : lines_)
    line->book.TakeAll(left);
}

const Track* SampleFetcher::FindTrack(int index) const {
  for (const LiveServer& server : servers_) {
    for (const Track& track : server.tracks) {
      if (track.index == index)
        return &track;
    }
  }
  return nullptr;
}

void SampleFetcher::Order(PendingPicturePtr picture) {
  const LiveOrder order = picture->Order();
  const auto server = std::find_if(servers_.begin(), servers_.end(), [&](const LiveServer& known) {
    return std::any_of(known.tracks.begin(), known.tracks.end(),
                       [&](const Track& track) { return track.index == order.key.track; });
  });
  if (server == servers_.end()) {
    picture->Answer({.reason = "there is no such track"});
    return;
  }
  const Track& track = *FindTrack(order.key.track);
  PendingPictureList stale;
  SamplePtr cached;
  {
    const std::lock_guard<std::mutex> lock(access_);
    if (isStopped_)
      return;
    Line& line = *lines_[static_cast<size_t>(server - servers_.begin())];
    ++figures_.orders;
    picture->priority = PriorityOf(order.kind, ++serial_);
    if (order.kind != Kind::Thumbnail) {
      lastOrder_ = Clock::now();
      line.nearby.reset();
      if (order.kind == Kind::Show)
        line.nearby = order;
    }
    cached = store_.Find(order.key);
    if (cached) {
      ++figures_.cacheHits;
      stale = line.book.DropStale(order);
    } else {
      stale = line.book.Add(std::exchange(picture, nullptr), track);
    }
    if (order.kind == Kind::Play)
      AddAhead(line, order, track);
    figures_.stale += static_cast<int64_t>(stale.size());
    ++line.changes;
    line.changed.notify_all();
  }
  AnswerStale(stale);
  if (cached) {
    picture->cached = true;
    taker_({std::move(picture), std::move(cached), {}});
  }
}

int64_t SampleFetcher::MaxAhead() const {
  const int64_t mean = store_.Count() == 0 ? 1 : store_.Bytes() / store_.Count();
  return std::clamp<int64_t>(store_.MaxBytes() / kPartOfStoreAhead / mean, 1, kMaxAhead);
}

void SampleFetcher::AddAhead(Line& line, const LiveOrder& order, const Track& track) {
  line.book.DropPassed(order);
  const int64_t ahead = MaxAhead();
  for (int64_t i = 1; i <= ahead; ++i) {
    const SampleKey key{order.key.track, order.key.sample + i * order.step};
    if (IsInside(track, key.sample) && !store_.Holds(key) && !line.book.Holds(key))
      line.book.AddAhead(order, track, key.sample, PriorityOf(Kind::Play, ++serial_));
  }
}

void SampleFetcher::AddNearby(Line& line) {
  const SampleKey at = line.nearby->key;
  line.nearby.reset();
  const Track& track = *FindTrack(at.track);
  const auto add = [&](int64_t sample) {
    if (IsInside(track, sample) && !store_.Holds({at.track, sample}))
      line.book.AddNearby(track, sample);
  };
  for (int64_t i = 1; i <= std::min(kNearbySamples, MaxAhead()); ++i) {
    add(at.sample + i);
    add(at.sample - i);
  }
}

std::optional<OrderBook::Read> SampleFetcher::WaitForRead(Line& line, OrderBook::Reader reader,
                                                          std::stop_token stop) {
  std::unique_lock<std::mutex> lock(access_);
  while (!stop.stop_requested()) {
    if (auto read = line.book.Next(reader)) {
      if (reading_++ == 0)
        readingSince_ = Clock::now();
      isReading_.notify_one();
      return read;
    }
    const bool looksAround = line.nearby && reader != OrderBook::Reader::Single;
    const auto calm = lastOrder_ + kCalm;
    if (looksAround && Clock::now() >= calm) {
      AddNearby(line);
      continue;
    }
    const auto isChanged = [&line, seen = line.changes] { return line.changes != seen; };
    if (looksAround)
      line.changed.wait_until(lock, stop, calm, isChanged);
    else
      line.changed.wait(lock, stop, isChanged);
  }
  return std::nullopt;
}

void SampleFetcher::Serve(size_t server, int connection, std::stop_token stop) {
  const LiveServer& known = servers_[server];
  LiveConnection own;
  LiveConnection& reader = connection == 0 ? *known.reader : own;
  if (connection != 0)
    OpenAll(known.tracks, reader, stop);
  Line& line = *lines_[server];
  const OrderBook::Reader kind = ReaderOf(connection, limits_.connections);
  while (auto read = WaitForRead(line, kind, stop)) {
    const std::stop_callback end(stop, [&] { read->stop.request_stop(); });
    const Clock::time_point begin = Clock::now();
    LiveConnection::Result result = reader.Read(read->order, read->stop.get_token());
    CountReading(line, Clock::now() - begin);
    const bool isStopped = read->stop.stop_requested() && !stop.stop_requested();
    if (isStopped && !result.failure.empty())
      PutBack(line, read->key);
    else
      Finish(line, read->key, std::move(result));
  }
}

void SampleFetcher::CountReading(Line& line, Clock::duration time) {
  const std::lock_guard<std::mutex> lock(access_);
  line.readings.Add(time);
  if (--reading_ == 0)
    figures_.secondsReading += std::chrono::duration<double>(Clock::now() - readingSince_).count();
}

void SampleFetcher::PutBack(Line& line, const SampleKey& key) {
  PendingPictureList stale;
  {
    const std::lock_guard<std::mutex> lock(access_);
    stale = line.book.PutBack(key);
    figures_.stale += static_cast<int64_t>(stale.size());
    ++line.changes;
    line.changed.notify_all();
  }
  AnswerStale(stale);
}

void SampleFetcher::Watch(std::stop_token stop) {
  std::unique_lock<std::mutex> lock(access_);
  while (isReading_.wait(lock, stop, [this] { return reading_ != 0; })) {
    isReading_.wait_for(lock, stop, kWatchEvery, [] { return false; });
    if (stop.stop_requested())
      return;
    const PendingPictureList stale = StopStalled();
    lock.unlock();
    AnswerStale(stale);
    lock.lock();
  }
}

PendingPictureList SampleFetcher::StopStalled() {
  constexpr double kMedian = 0.5;
  PendingPictureList stale;
  for (const auto& line : lines_) {
    const std::chrono::duration<double, std::milli> usual(
        line->readings.PercentileMilliseconds(kMedian));
    const auto patience = std::max<Clock::duration>(
        kPatience, std::chrono::duration_cast<Clock::duration>(kTimesUsual * usual));
    PendingPictureList ofLine = line->book.StopStalled(Clock::now() - patience);
    std::move(ofLine.begin(), ofLine.end(), std::back_inserter(stale));
  }
  figures_.stale += static_cast<int64_t>(stale.size());
  return stale;
}

void SampleFetcher::Finish(Line& line, const SampleKey& key, LiveConnection::Result result) {
  PendingPictureList waiting;
  {
    const std::lock_guard<std::mutex> lock(access_);
    ++figures_.reads;
    figures_.bytesRead += result.bytes;
    line.failure = result.failure;
    if (result.sample)
      store_.Add(key, result.sample, result.bytes);
    waiting = line.book.Finish(key);
    if (!result.failure.empty())
      line.book.DropAhead();
  }
  for (PendingPicturePtr& picture : waiting)
    taker_({std::move(picture), result.sample, result.failure});
}

FetchFigures SampleFetcher::Figures() const {
  const std::lock_guard<std::mutex> lock(access_);
  FetchFigures figures = figures_;
  if (reading_ != 0)
    figures.secondsReading += std::chrono::duration<double>(Clock::now() - readingSince_).count();
  figures.cacheSamples = store_.Count();
  figures.cacheBytes = store_.Bytes();
  figures.cacheMaxBytes = store_.MaxBytes();
  for (size_t server = 0; server < servers_.size(); ++server)
    figures.servers.push_back({servers_[server].name, lines_[server]->failure});
  return figures;
}

}  // namespace Moravel::Play
