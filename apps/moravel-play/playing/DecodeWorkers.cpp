#include "playing/DecodeWorkers.h"

#include <string_view>

#include "Player/DecodeOrder.h"
#include "Player/QELSample.h"
#include "playing/FrameworkLines.h"
#include "sinks/OutputFile.h"

namespace Moravel::Play {

namespace {

class Worker {
 public:
  Worker(size_t number, WorkQueue& queue, const PictureSinks& sinks, Stopper& stopper)
      : number_(number), queue_(queue), sinks_(sinks), stopper_(stopper) {}

  void Run() {
    while (const std::optional<Task> task = queue_.Pop(stopper_.Token())) {
      const Track& track = task->track->facts;
      for (int field = 0; field < track.picturesPerSample; ++field)
        DecodeField(*task, field == 1);
      task->track->cache.Release(track.TimeOf(track.sequence.SampleAt(task->position)));
      ++task->track->statistics.samplesDone;
    }
  }

 private:
  struct Decoded {
    qel::VideoSampleConstPtr image;
    std::string failure;
  };

  // The elements report damage once for each entropy decode, which sizes may share: it damages all
  // sizes of the picture.
  void DecodeField(const Task& task, bool bottom) {
    const Track& track = task.track->facts;
    const CapturedWarnings warnings;
    std::string failure;
    for (size_t i = 0; i < track.sizes.size(); ++i) {
      Picture picture = {
          track,  track.sizes[i], task.position, track.sequence.SampleAt(task.position),
          bottom, task.state,     nullptr};
      if (task.sample != nullptr) {
        Decoded decoded = Decode(task, picture);
        picture.image = std::move(decoded.image);
        if (!picture.image)
          picture.state = PictureState::Undecodable;
        else if (!warnings.First().empty())
          picture.state = PictureState::Damaged;
        if (failure.empty())
          failure = decoded.failure;
        SizeStatistics& statistics = task.track->statistics.sizes[i];
        statistics.pictures += picture.image ? 1 : 0;
        statistics.damaged += picture.state != PictureState::Fine ? 1 : 0;
      }
      Write(picture);
    }
    TellLoss(task, bottom, failure, warnings.First());
  }

  static void TellLoss(const Task& task, bool bottom, const std::string& failure,
                       const std::string& warning) {
    if (failure.empty() && warning.empty())
      return;
    const Track& track = task.track->facts;
    const auto state = failure.empty() ? PictureState::Damaged : PictureState::Undecodable;
    task.track->statistics.losses.Tell(track, state, track.sequence.SampleAt(task.position),
                                       track.interlaced ? bottom ? "bottom" : "top" : "",
                                       failure.empty() ? ReasonOfDamage(warning) : failure);
  }

  // The element names a stream, which is the same for all pictures of a track.
  static std::string ReasonOfDamage(const std::string& warning) {
    constexpr std::string_view kDamaged = "is damaged: ";
    const size_t at = warning.find(kDamaged);
    return at == std::string::npos ? warning : warning.substr(at + kDamaged.size());
  }

  Decoded Decode(const Task& task, const Picture& picture) {
    Player::DecodeOrder order;
    order.toDecode_ = task.sample;
    order.orderTp_ = picture.track.TimeOf(picture.sampleNumber);
    order.queue_ = &task.track->cache;
    order.decodeTopField_ = !picture.bottom;
    order.isInterlace_ = picture.track.interlaced;
    order.fieldSampleRate_ = picture.track.FieldRate();
    order.width_ = picture.size.width;
    order.height_ = picture.size.height;
    try {
      Player::ISampleDecoder& decoder = task.track->decodersOfWorker[number_].Dispatcher();
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

  void Write(const Picture& picture) {
    for (const auto& sink : sinks_) {
      try {
        sink->Write(picture);
      } catch (const ClosedPipe&) {
        stopper_.OutputClosed();
      } catch (const std::exception& error) {
        stopper_.OutputFailed(error.what());
      }
    }
  }

  const size_t number_;
  WorkQueue& queue_;
  const PictureSinks& sinks_;
  Stopper& stopper_;
};

}  // namespace

DecodeWorkers::DecodeWorkers(int jobs, WorkQueue& queue, const PictureSinks& sinks,
                             Stopper& stopper, std::function<void()> done) {
  for (int number = 0; number < jobs; ++number) {
    threads_.emplace_back([=, &queue, &sinks, &stopper] {
      Worker(static_cast<size_t>(number), queue, sinks, stopper).Run();
      done();
    });
  }
}

}  // namespace Moravel::Play
