#include "playing/DecodeWorkers.h"

#include "Player/DecodeOrder.h"
#include "Player/QELSample.h"
#include "command/Problem.h"
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
  // The elements report damage once for each entropy decode, which sizes may share: it damages all
  // sizes of the picture.
  void DecodeField(const Task& task, bool bottom) {
    const Track& track = task.track->facts;
    const int64_t warningsBefore = FrameworkLines::WarningsOfThisThread();
    for (size_t i = 0; i < track.sizes.size(); ++i) {
      Picture picture = {track,         track.sizes[i],
                         task.position, track.sequence.SampleAt(task.position),
                         bottom,        nullptr};
      if (task.sample != nullptr) {
        picture.image = Decode(task, picture);
        SizeStatistics& statistics = task.track->statistics.sizes[i];
        statistics.pictures += picture.image ? 1 : 0;
        const bool warned = FrameworkLines::WarningsOfThisThread() != warningsBefore;
        statistics.damaged += !picture.image || warned ? 1 : 0;
      }
      Write(picture);
    }
  }

  qel::VideoSampleConstPtr Decode(const Task& task, const Picture& picture) {
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
      return TakeImage(std::unique_ptr<Player::ISample>(decoder.Decode(order)));
    } catch (const std::exception& error) {
      if (!task.track->statistics.decodeErrorReported.exchange(true)) {
        PrintProblem(picture.track.name + ": sample " + std::to_string(picture.sampleNumber) +
                     ": " + error.what());
      }
      return nullptr;
    }
  }

  static qel::VideoSampleConstPtr TakeImage(std::unique_ptr<Player::ISample> decoded) {
    const auto* const sample = dynamic_cast<const Player::QELSample*>(decoded.get());
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
