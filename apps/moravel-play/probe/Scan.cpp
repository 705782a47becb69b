#include "probe/Scan.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <map>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>

#include "Player/DecodeOrder.h"
#include "Player/QELSample.h"
#include "elements/StopScope.h"
#include "playing/FrameworkLines.h"
#include "playing/Losses.h"
#include "probe/SampleReader.h"
#include "tracks/TrackDecoders.h"

namespace Moravel::Play {

namespace {

// A server that answers nothing is given up: after so many failures in a row, or fewer the
// longer they take. What is wrong with a file is told at once, and seldom of so many samples.
constexpr int kMaxFailures = 1000;
constexpr int kMaxSlowFailures = 10;
constexpr std::chrono::seconds kSlowFailures{2};
constexpr std::chrono::seconds kVerySlowFailures{30};
constexpr size_t kMaxReasons = 1000;

struct SampleFault {
  PictureState state;
  std::string reason;
};

// The threads take turns at the source and decode side by side.
class Scan {
 public:
  Scan(const TrackSource& source, const Track& track, const qel::TrackIndex& index,
       ScanProgress& progress, std::stop_token stop)
      : source_(source), track_(track), index_(index), progress_(progress), stop_(stop) {}

  // In a thread of its own; what it cannot do is thrown by Result.
  void Run(Player::ISampleDecoder& decoder) noexcept {
    try {
      Work(decoder);
    } catch (...) {
      const std::lock_guard lock(access_);
      failure_ = std::current_exception();
    }
  }

  ScanResult Result() {
    if (failure_)
      std::rethrow_exception(failure_);
    for (const auto& [state, ranges] : lost_) {
      for (const SampleRanges::Range& range : ranges.List()) {
        const auto reason = reasons_.find(range.first);
        result_.losses.push_back(
            {state, range.first, range.last, reason == reasons_.end() ? "" : reason->second});
        result_.samplesLost += range.last - range.first + 1;
      }
      result_.unlisted += ranges.LeftOut();
    }
    result_.samplesLost += result_.unlisted;
    std::sort(result_.losses.begin(), result_.losses.end(),
              [](const ScanLoss& a, const ScanLoss& b) { return a.first < b.first; });
    return std::move(result_);
  }

 private:
  void Work(Player::ISampleDecoder& decoder) {
    const qel::StopScope scope(stop_);
    Player::QELSample sample;
    while (const std::optional<int64_t> number = ReadNext(sample)) {
      std::optional<SampleFault> fault = Decode(decoder, sample, *number, false);
      if (track_.interlaced && !(fault && fault->state == PictureState::Undecodable)) {
        if (std::optional<SampleFault> ofBottom = Decode(decoder, sample, *number, true))
          fault = std::move(ofBottom);
      }
      if (fault) {
        const std::lock_guard lock(access_);
        Lose(*number, *fault);
      }
      ++progress_.done;
    }
  }

  // The number of the next sample that could be read; nothing at the end.
  std::optional<int64_t> ReadNext(Player::QELSample& sample) {
    const std::lock_guard lock(access_);
    while (next_ < index_.Count() && !stop_.stop_requested()) {
      const int64_t number = next_++;
      if (index_.At(number).size != 0 && Read(sample, number))
        return number;
      if (index_.At(number).size == 0)
        Lose(number, {PictureState::Missing, "the track holds no picture there"});
      ++progress_.done;
    }
    return std::nullopt;
  }

  bool Read(Player::QELSample& sample, int64_t number) {
    try {
      qel::SampleContainerConstPtr container = ReadSample(source_, index_, number);
      if (!container)
        throw std::runtime_error("no sample came");
      sample.SetContainer(std::move(container));
      failuresInARow_ = 0;
      ++result_.samplesRead;
      return true;
    } catch (const std::exception& error) {
      if (stop_.stop_requested())
        return false;
      result_.isUnreadable = true;
      Lose(number, {PictureState::Unreadable, ReasonOf(error, track_.id)});
      if (IsHopeless())
        GiveUp();
      return false;
    }
  }

  // After one more failure.
  bool IsHopeless() {
    const auto now = std::chrono::steady_clock::now();
    if (failuresInARow_++ == 0)
      firstFailure_ = now;
    return failuresInARow_ >= kMaxFailures || now - firstFailure_ >= kVerySlowFailures ||
           (failuresInARow_ >= kMaxSlowFailures && now - firstFailure_ >= kSlowFailures);
  }

  void GiveUp() {
    if (next_ == index_.Count())
      return;
    reasons_.emplace(
        next_, "not asked for after " + std::to_string(failuresInARow_) + " failures in a row");
    lost_[PictureState::Unreadable].Add(next_, index_.Count() - 1);
    progress_.done += index_.Count() - next_;
    next_ = index_.Count();
  }

  std::optional<SampleFault> Decode(Player::ISampleDecoder& decoder, Player::QELSample& sample,
                                    int64_t number, bool bottom) const {
    Player::DecodeOrder order;
    order.toDecode_ = &sample;
    order.orderTp_ = track_.TimeOf(number);
    order.decodeTopField_ = !bottom;
    order.isInterlace_ = track_.interlaced;
    order.fieldSampleRate_ = track_.FieldRate();
    order.width_ = track_.ownSize.width;
    order.height_ = track_.ownSize.height;
    const std::string field = track_.interlaced ? bottom ? "bottom: " : "top: " : "";
    const CapturedWarnings warnings;
    try {
      const std::unique_ptr<Player::ISample> picture(decoder.Decode(order));
      if (!picture)
        return SampleFault{PictureState::Undecodable, field + "no picture came of it"};
    } catch (const std::exception& error) {
      return SampleFault{PictureState::Undecodable, field + error.what()};
    }
    if (warnings.First().empty())
      return std::nullopt;
    return SampleFault{PictureState::Damaged, field + warnings.First()};
  }

  // Under the lock.
  void Lose(int64_t number, const SampleFault& fault) {
    lost_[fault.state].Add(number, number);
    if (reasons_.size() < kMaxReasons)
      reasons_.emplace(number, fault.reason);
  }

  const TrackSource& source_;
  const Track& track_;
  const qel::TrackIndex& index_;
  ScanProgress& progress_;
  const std::stop_token stop_;

  std::mutex access_;  // guards all below, and the source
  int64_t next_ = 0;
  int failuresInARow_ = 0;
  std::chrono::steady_clock::time_point firstFailure_;
  std::map<PictureState, SampleRanges> lost_;
  std::map<int64_t, std::string> reasons_;
  ScanResult result_;
  std::exception_ptr failure_;
};

}  // namespace

ScanResult ScanTrack(const TrackSource& source, const Track& track, const qel::TrackIndex& index,
                     int jobs, ScanProgress& progress, std::stop_token stop) {
  progress.all += index.Count();
  Scan scan(source, track, index, progress, stop);
  std::vector<TrackDecoders> decoders;
  decoders.reserve(static_cast<size_t>(jobs));
  for (int job = 0; job < jobs; ++job)  // luma alone tells all damage
    decoders.emplace_back(source.Media(), qel::FourCC_Y800, std::vector<Size>{track.ownSize});
  {
    std::vector<std::jthread> threads;
    threads.reserve(decoders.size());
    for (TrackDecoders& decoder : decoders)
      threads.emplace_back([&scan, &decoder] { scan.Run(decoder.Dispatcher()); });
  }
  return scan.Result();
}

}  // namespace Moravel::Play
