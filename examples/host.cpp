// A whole host in small: reads the first pictures of tracks of several storage servers, decodes
// them in four threads to a size of its own, and prints a line for each.
//   host ADDRESS PORT TRACK [ADDRESS PORT TRACK]...
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Player/QELMultiResDecoder.h"
#include "Player/QELPreloader.h"
#include "elements/BuiltinElements.h"
#include "host/HostLogging.h"
#include "host/LiveQueues.h"
#include "qelCore/LoggerWriter.h"

using namespace Moravel;

namespace {

constexpr int kPictures = 8;
constexpr int kDecodeThreads = 4;
constexpr int kWidth = 640;
constexpr int kHeight = 360;  // of a frame; a field has half of it

// Lines of the library and the framework go to standard error, warnings and worse only. A host that
// installs no writer gets every framework line there, traces included.
void SetUpLogs() {
  orl::mv::logging::SetLogLevel(orl::mv::logging::ILogger::Level_Warning);
  qel::SetCurrentLoggerWriter(orl::mv::logging::CreateFrameworkLogWriter());
}

// A sample on its way from a preloader to a decode thread.
struct Work {
  size_t track;
  std::unique_ptr<Player::ISample> sample;
};

// What the decode threads take from.
class WorkList {
 public:
  void Add(Work work) {
    const std::lock_guard<std::mutex> lock(access_);
    works_.push_back(std::move(work));
    changed_.notify_one();
  }
  void End() {
    const std::lock_guard<std::mutex> lock(access_);
    ended_ = true;
    changed_.notify_all();
  }
  // Waits for work; nothing when all is done.
  std::optional<Work> Take() {
    std::unique_lock<std::mutex> lock(access_);
    changed_.wait(lock, [this] { return ended_ || !works_.empty(); });
    if (works_.empty())
      return std::nullopt;
    Work work = std::move(works_.front());
    works_.pop_front();
    return work;
  }

 private:
  std::mutex access_;  // guards all below
  std::condition_variable changed_;
  std::deque<Work> works_;
  bool ended_ = false;
};

// One for each track: a record tells the time that was ordered, and not the track.
class Queue : public Player::CacheUpdateQueue {
 public:
  Queue(size_t track, WorkList& list) : track_(track), list_(list) {}

  // Called on the preloading thread, under the preloader's lock: take it over and return.
  void Push(const Player::Output& output) override {
    std::unique_ptr<Player::ISample> sample(output.sample_);
    if (sample)
      list_.Add({track_, std::move(sample)});
    else
      std::cout << "nothing is stored at " << output.tp_ << "\n";
  }

 private:
  const size_t track_;
  WorkList& list_;
};

// A track, described before any order can switch its source to another one.
struct Track {
  explicit Track(const Player::TrackId& trackId) : id(trackId) {
    Player::QELPreloader::InitSource(source, control, id);
    const qel::VideoInfoList infos = source->GetDefinedOutput("")->GetVideoInfoList();
    isInterlaced = infos.size() == 2;  // a stream for each field
    const qel::EditRate& editRate = infos.at(0)->GetEditRate();
    rate = Player::SampleRate(editRate._numerator, editRate._denominator);
    count = std::min<int64_t>(infos.at(0)->GetSampleCount(), kPictures);
  }

  Player::TrackId id;
  qel::MediaSourcePtr source;
  qel::SourceControlPtr control;
  bool isInterlaced = false;
  Player::SampleRate rate;  // of frames, each of which may be two fields
  int64_t count = 0;
};

// A decoder of one track at one size, and the dispatcher that finds it. Each decode thread has its
// own: decodes at one decoder take turns.
class TrackDecoder {
 public:
  explicit TrackDecoder(const Track& track)
      : track_(track), height_(track.isInterlaced ? kHeight / 2 : kHeight) {
    Player::QELDecoder element;
    Player::QELSampleDecoder::InitJPEGDecoder(track.source, element, qel::FourCC_I420);
    // The size that orders name only chooses the decoder; the element has to be told.
    const auto size = qel::CreateParametersCollectionInstance(
        qel::GetUpdateConfigPrototype(qel::ElementFactoryType_VideoDecoder, "qel", "video.mjpeg"));
    size->SetParamInt64("output_width", kWidth);
    size->SetParamInt64("output_height", height_);
    element.second->UpdateConfig(size);
    decoder_.SetDecoder(element);
    dispatcher_.AddDecoder(kWidth, height_, &decoder_);
  }
  ~TrackDecoder() { dispatcher_.RemoveDecoder(kWidth, height_); }

  // The frame, or the top and then the bottom field. Errors are exceptions.
  void Decode(Player::ISample& sample) {
    DecodeOne(sample, true);
    if (track_.isInterlaced)
      DecodeOne(sample, false);
  }

 private:
  void DecodeOne(Player::ISample& sample, bool top) {
    Player::DecodeOrder order;
    order.toDecode_ = &sample;
    order.orderTp_ = sample.GetTimePoint();
    order.isInterlace_ = track_.isInterlaced;
    order.decodeTopField_ = top;  // true for a progressive frame
    order.fieldSampleRate_ =
        Player::SampleRate(2 * track_.rate.Numerator(), track_.rate.Denominator());
    order.width_ = kWidth;
    order.height_ = height_;
    const std::unique_ptr<Player::ISample> picture(dispatcher_.Decode(order));
    if (!picture)
      throw std::runtime_error("the order could not be served; the log says why");
    Show(*picture);
  }

  // A host sample knows keys and bytes; width, height and format are the framework sample's.
  void Show(const Player::ISample& picture) const {
    const auto& qelSample = dynamic_cast<const Player::QELSample&>(picture);
    const qel::VideoSampleConstPtr video =
        qelSample.GetContainer()->GetVideoSampleList({}, {}).at(0);
    if (video->GetWidth() != kWidth || video->GetHeight() != height_)
      throw std::runtime_error("the picture has another size than its element was told");
    uint64_t size = 0;
    const uint8_t* const luma = picture.GetData(video->GetStreamId(), size);
    const uint8_t* const u = luma + kWidth * height_;  // I420: Y, U, V, rows without padding
    std::ostringstream line;
    line << track_.id.ToString() << " " << picture.GetTimePoint() << " "
         << (picture.GetPropertyKeys().contains("bottom") ? "bottom field "
             : track_.isInterlaced                        ? "top field "
                                                          : "frame ")
         << video->GetWidth() << "x" << video->GetHeight() << ", first Y " << int{luma[0]}
         << ", first U " << int{u[0]} << ", " << size << " bytes\n";
    std::cout << line.str();
  }

  const Track& track_;
  const int height_;
  Player::QELSampleDecoder decoder_;  // outlives its registration
  Player::QELMultiResDecoder dispatcher_;
};

using Decoders = std::vector<std::unique_ptr<TrackDecoder>>;  // by track

// Says what went wrong and counts it.
class Failures {
 public:
  void Add(const std::string& what) {
    std::cerr << what + "\n";
    ++count_;
  }
  int Count() const { return count_; }

 private:
  std::atomic<int> count_ = 0;
};

// Orders the samples of a track, one after the other.
void Preload(Player::QELPreloader& preloader, const Track& track, Queue& queue,
             Failures& failures) {
  const auto u = static_cast<uint64_t>(track.rate.Numerator());
  const auto d = static_cast<uint64_t>(track.rate.Denominator());
  for (int64_t n = 0; n < track.count; ++n) {
    const auto time = Time::TimePoint().FromRatio(static_cast<uint64_t>(n), d, u);
    try {
      const Player::PreloadOrder order(time, track.rate, &queue, track.id);
      if (preloader.Preload(order) == Player::IPreloader::PreloadResult::ERROR)
        failures.Add(track.id.ToString() + ": an order was not served; the log says why");
    } catch (const qel::QELRuntimeError& error) {
      failures.Add(error.what());  // the server: the next order may be served again
    }
  }
  preloader.RemoveTrackId(track.id);
}

void Decode(WorkList& list, const Decoders& decoders, Failures& failures) {
  while (const std::optional<Work> work = list.Take()) {
    try {
      decoders[work->track]->Decode(*work->sample);
    } catch (const std::runtime_error& error) {
      failures.Add(error.what());  // this picture: the decoder takes the next one
    }
  }
}

int Play(const std::vector<Track>& tracks) {
  // Decoders are built before any order runs: they read what the sources say of their tracks.
  std::vector<Decoders> decoders(kDecodeThreads);
  for (Decoders& ofThread : decoders) {
    for (const Track& track : tracks)
      ofThread.push_back(std::make_unique<TrackDecoder>(track));
  }
  WorkList list;
  Failures failures;
  std::vector<std::jthread> decoding;
  for (const Decoders& ofThread : decoders)
    decoding.emplace_back([&] { Decode(list, ofThread, failures); });

  Player::LiveQueues live;  // lets a queue go while orders for it may still come
  std::vector<std::jthread> preloading;
  for (size_t i = 0; i < tracks.size(); ++i) {
    preloading.emplace_back([&, i] {
      const Track& track = tracks[i];
      Queue queue(i, list);
      live.Add(&queue);
      Player::QELPreloader preloader;  // its own, so that a slow server delays nobody else
      preloader.SetExistingCacheUpdateQueues(&live);
      preloader.SetStorageSource(track.id.StorageId(), track.source, track.control);
      try {
        Preload(preloader, track, queue, failures);
      } catch (const std::runtime_error& error) {
        failures.Add(error.what());
      }
      preloader.RemoveStorageSource(track.id.StorageId());
      live.Remove(&queue);
    });
  }
  preloading.clear();  // waits for them
  list.End();
  decoding.clear();
  return failures.Count();
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc < 4 || argc % 3 != 1)
    throw std::runtime_error("usage: host ADDRESS PORT TRACK [ADDRESS PORT TRACK]...");
  SetUpLogs();
  qel::RegisterBuiltinElements();  // before the first preloader: it looks for its configuration
  std::vector<Track> tracks;
  for (int i = 1; i < argc; i += 3)
    tracks.emplace_back(Player::TrackId({argv[i], std::atoi(argv[i + 1])}, std::atoi(argv[i + 2])));
  const int failures = Play(tracks);
  if (failures == 0)
    return EXIT_SUCCESS;
  std::cerr << failures << " pictures are missing\n";
  return EXIT_FAILURE;
} catch (const std::exception& error) {
  std::cerr << error.what() << "\n";  // a track could not be opened, or a decoder not be built
  return EXIT_FAILURE;
}
