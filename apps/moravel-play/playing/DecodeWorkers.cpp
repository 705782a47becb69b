#include "playing/DecodeWorkers.h"

#include <string_view>

#include "Player/DecodeOrder.h"
#include "Player/QELSample.h"
#include "playing/FrameworkLines.h"
#include "sinks/WovenFrame.h"

namespace Moravel::Play {

namespace {

class Worker {
 public:
  Worker(size_t number, const Playback& playback) : number_(number), playback_(playback) {}

  void Run() {
    while (std::optional<Task> task = playback_.queue.Pop(playback_.stopper.Token())) {
      PlayingTrack& track = *task->job.track;
      const bool hasSample = task->sample != nullptr;
      if (hasSample && playback_.schedule.HasPassed(task->job))
        Drop(*task);
      WriteStored(*task);
      for (int i = 0; i < track.facts.picturesPerSample; ++i)
        DecodeField(*task, track.facts.IsBottom(i));
      if (hasSample)
        track.cache.Release(track.facts.TimeOf(NumberOf(*task)));
      CountDone(*task);
      playback_.schedule.Release(task->job);
    }
  }

 private:
  static void Drop(Task& task) {
    task.sample = nullptr;
    task.state = PictureState::Late;
    CountDropped(*task.job.track, NumberOf(task));
  }

  void CountDone(const Task& task) {
    TrackStatistics& statistics = task.job.track->statistics;
    ++statistics.samplesDone;
    if (task.state == PictureState::Fine) {
      ++statistics.samplesPlayed;
      statistics.playTicks += task.job.track->facts.TicksOf(NumberOf(task));
    }
    const std::lock_guard<std::mutex> lock(statistics.ordersAccess);
    Extend(statistics, MomentOf(*task.job.track, playback_.workers));
  }

  static int64_t NumberOf(const Task& task) {
    return task.job.track->facts.sequence.SampleAt(task.job.position);
  }

  struct Decoded {
    qel::VideoSampleConstPtr image;
    std::string failure;
  };

  // The elements report damage once for each entropy decode, which sizes may share: it damages all
  // sizes of the picture.
  void DecodeField(const Task& task, bool bottom) {
    const Track& track = task.job.track->facts;
    const CapturedWarnings warnings;
    std::string failure;
    bool isShown = true;
    for (size_t i = 0; i < track.sizes.size(); ++i) {
      Picture picture = {track,      track.sizes[i], task.job.position, NumberOf(task), bottom,
                         task.state, nullptr};
      if (task.sample != nullptr) {
        Decoded decoded = track.weaves ? DecodeFrame(task, picture) : Decode(task, picture);
        picture.image = std::move(decoded.image);
        if (!picture.image)
          picture.state = PictureState::Undecodable;
        else if (!warnings.First().empty() || !decoded.failure.empty())
          picture.state = PictureState::Damaged;
        isShown = isShown && picture.image;
        if (failure.empty())
          failure = decoded.failure;
        Count(task, i, picture);
      }
      Write(picture);
    }
    TellLoss(task, bottom, isShown, failure, warnings.First());
  }

  void Count(const Task& task, size_t size, const Picture& picture) {
    TrackStatistics& statistics = task.job.track->statistics;
    SizeStatistics& sizeStatistics = statistics.sizes[size];
    sizeStatistics.pictures += picture.image ? 1 : 0;
    sizeStatistics.damaged += picture.state != PictureState::Fine ? 1 : 0;
    if (size == 0)
      CountLate(task);
  }

  void CountLate(const Task& task) {
    const Clock::duration lateness = playback_.schedule.Lateness(task.job);
    if (lateness == Clock::duration())
      return;
    TrackStatistics& statistics = task.job.track->statistics;
    ++statistics.late;
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(lateness).count();
    statistics.losses.Tell(task.job.track->facts, PictureState::Late, NumberOf(task), "",
                           "came " + std::to_string(milliseconds) + " ms after its time");
  }

  static void TellLoss(const Task& task, bool bottom, bool isShown, const std::string& failure,
                       const std::string& warning) {
    if (failure.empty() && warning.empty())
      return;
    const Track& track = task.job.track->facts;
    const auto state = isShown ? PictureState::Damaged : PictureState::Undecodable;
    task.job.track->statistics.losses.Tell(
        track, state, NumberOf(task),
        track.interlaced && !track.weaves ? bottom ? "bottom" : "top" : "",
        failure.empty() ? warning : failure);
  }

  // Of a field that fails, the other one's rows stand in; that is a damaged frame.
  Decoded DecodeFrame(const Task& task, Picture picture) {
    picture.bottom = false;
    const Decoded top = Decode(task, picture);
    picture.bottom = true;
    const Decoded bottom = Decode(task, picture);
    std::string failure;
    if (!top.failure.empty())
      failure = "top field: " + top.failure;
    else if (!bottom.failure.empty())
      failure = "bottom field: " + bottom.failure;
    return {WeaveFields(top.image, bottom.image), failure};
  }

  Decoded Decode(const Task& task, const Picture& picture) {
    Player::DecodeOrder order;
    order.toDecode_ = task.sample;
    order.orderTp_ = picture.track.TimeOf(picture.sampleNumber);
    order.queue_ = &task.job.track->cache;
    order.decodeTopField_ = !picture.bottom;
    order.isInterlace_ = picture.track.interlaced;
    order.fieldSampleRate_ = picture.track.FieldRate();
    const Size size = picture.track.DecodedSize(picture.size);
    order.width_ = size.width;
    order.height_ = size.height;
    const Timed timed(playback_.workers.decoding, &task.job.track->statistics.decoding);
    try {
      Player::ISampleDecoder& decoder = (*task.job.track->decoders)[number_].Dispatcher();
      const std::unique_ptr<Player::ISample> decoded(decoder.Decode(order));
      return {TakeImage(decoded.get()), decoded ? "" : "no picture came of it"};
    } catch (const std::exception& error) {
      return {nullptr, error.what()};
    }
  }

  static qel::VideoSampleConstPtr TakeImage(const Player::ISample* decoded) {
    const auto* const sample = dynamic_cast<const Player::QELSample*>(decoded);
    return sample == nullptr ? nullptr : sample->GetContainer()->GetVideoSampleList({}, {}).front();
  }

  void WriteStored(const Task& task) {
    const auto* const sample = dynamic_cast<const Player::QELSample*>(task.sample);
    if (sample == nullptr)
      return;
    if (task.job.track->facts.sizes.empty())
      CountLate(task);
    const Timed timed(playback_.workers.writing);
    const StoredSample stored = {task.job.track->facts, NumberOf(task), sample->GetContainer()};
    ForEachSink(playback_.sinks, playback_.stopper,
                [&](IPictureSink& sink) { sink.WriteStored(stored); });
  }

  void Write(const Picture& picture) {
    const Timed timed(playback_.workers.writing);
    ForEachSink(playback_.sinks, playback_.stopper,
                [&](IPictureSink& sink) { sink.Write(picture); });
  }

  const size_t number_;
  const Playback& playback_;
};

}  // namespace

void DecodeSamples(size_t worker, const Playback& playback) {
  Worker(worker, playback).Run();
}

}  // namespace Moravel::Play
