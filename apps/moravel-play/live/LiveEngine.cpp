#include "live/LiveEngine.h"

#include <utility>

namespace Moravel::Play {

namespace {

using State = LivePicture::State;

constexpr size_t kMaxMarks = 100'000;  // of a track; more could not be told apart on a bar

// Whether the sample was there when the track was opened.
bool IsStored(const Track& track, int64_t sample) {
  return track.stored && track.stored->At(sample).size != 0;
}

}  // namespace

LiveEngine::LiveEngine(std::vector<LiveServer> servers, const Limits& limits)
    : maker_(limits.decoders,
             [this](const LiveOrder& order, const LivePicture& picture) { Note(order, picture); }),
      fetcher_(std::move(servers), {limits.cacheBytes, limits.connections},
               [this](SampleFetcher::Fetched fetched) { Take(std::move(fetched)); }) {}

std::future<LivePicture> LiveEngine::Order(LiveOrder order) {
  auto picture = std::make_unique<PendingPicture>(std::move(order));
  auto future = picture->Future();
  fetcher_.Order(std::move(picture));
  return future;
}

void LiveEngine::Take(SampleFetcher::Fetched fetched) {
  const LiveOrder& order = fetched.picture->Order();
  if (fetched.sample) {
    const Track& track = *FindTrack(order.key.track);
    maker_.Make(std::move(fetched.picture), track, std::move(fetched.sample));
    return;
  }
  LivePicture picture;
  picture.reason = std::move(fetched.failure);
  if (picture.reason.empty() && IsStored(*FindTrack(order.key.track), order.key.sample))
    picture.reason = "it is not the file any more that was opened: start moravel-play view again";
  picture.state = picture.reason.empty() ? State::Missing : State::Failed;
  Note(order, picture);
  fetched.picture->Answer(std::move(picture));
}

void LiveEngine::Note(const LiveOrder& order, const LivePicture& picture) {
  const std::lock_guard<std::mutex> lock(notesAccess_);
  Marks& marks = marks_[order.key.track];
  if (picture.state == State::Missing && marks.missing.size() < kMaxMarks)
    marks.missing.insert(order.key.sample);
  const bool isDamaged = picture.state == State::Damaged || picture.state == State::Broken;
  if (isDamaged && marks.damaged.size() < kMaxMarks)
    marks.damaged.insert(order.key.sample);
  if (!picture.image || order.kind == LiveOrder::Kind::Thumbnail)
    return;
  ++pictures_;
  latencies_.Add(picture.latency);
  decodings_.Add(picture.decoding);
}

LiveEngine::Figures LiveEngine::CurrentFigures() const {
  constexpr double kMedian = 0.5;
  constexpr double kTail = 0.99;
  Figures figures;
  figures.fetching = fetcher_.Figures();
  const std::lock_guard<std::mutex> lock(notesAccess_);
  figures.latencyP50Ms = latencies_.PercentileMilliseconds(kMedian);
  figures.latencyP99Ms = latencies_.PercentileMilliseconds(kTail);
  figures.decodeP50Ms = decodings_.PercentileMilliseconds(kMedian);
  figures.pictures = pictures_;
  return figures;
}

LiveEngine::Marks LiveEngine::MarksOf(int track) const {
  const std::lock_guard<std::mutex> lock(notesAccess_);
  const auto found = marks_.find(track);
  return found == marks_.end() ? Marks() : found->second;
}

}  // namespace Moravel::Play
