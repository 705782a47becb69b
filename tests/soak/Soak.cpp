#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Player/QELMultiResDecoder.h"
#include "Player/QELPreloader.h"
#include "elements/BuiltinElements.h"
#include "host/HostLogging.h"
#include "host/LiveQueues.h"
#include "qel/Parameters.h"
#include "qelCore/LoggerWriter.h"
#include "support/ClipMaker.h"
#include "support/FaultyServer.h"
#include "support/TempFolder.h"

// soak [SECONDS]: several tracks of several servers with random faults, orders in sequence and at
// random, queues that die with orders under way, registrations that come and go. At the end every
// sample that was made has been destroyed, every order has had exactly one answer, memory is flat.
namespace Moravel::Test {

namespace {

using namespace Player;

constexpr int kServers = 2;
constexpr int kTracks = 2;
constexpr int kPictures = 60;
constexpr int kQueues = 3;
constexpr int64_t kMostGrowthKilobytes = 48 * 1024;
constexpr std::array<std::pair<int, int>, 3> kSizes = {{{0, 0}, {32, 24}, {16, 12}}};
const SampleRate kRate(25, 1);

using Random = std::mt19937;

int Below(Random& random, int end) {
  return static_cast<int>(random() % unsigned(end));
}

// What came of the orders.
struct Account {
  std::atomic<int64_t> orders = 0, served = 0, errors = 0, thrown = 0;
  std::atomic<int64_t> outputs = 0;  // that a queue took, or the registry refused
  std::atomic<int64_t> pictures = 0;
};

// A cache of few samples, which may die at any time.
class Cache : public CacheUpdateQueue {
 public:
  void Push(const Output& output) override {
    std::shared_ptr<ISample> sample(output.sample_);
    const std::lock_guard<std::mutex> lock(samplesAccess_);
    samples_[next_++ % samples_.size()] = std::move(sample);
  }

  std::shared_ptr<ISample> Any(Random& random) {
    const std::lock_guard<std::mutex> lock(samplesAccess_);
    return samples_[random() % samples_.size()];
  }

 private:
  std::mutex samplesAccess_;  // guards all below
  std::array<std::shared_ptr<ISample>, 8> samples_;
  size_t next_ = 0;
};

struct Registry : LiveQueues {
  bool PushIfExists(CacheUpdateQueue* queue, const Output& output) override {
    ++account.outputs;
    return LiveQueues::PushIfExists(queue, output);
  }
  Account account;
};

Fault AnyFault(Random& random) {
  if (Below(random, 30) != 0)
    return {};
  const auto part = Below(random, 2) == 0 ? Fault::Part::Header : Fault::Part::Body;
  const Fault::Point point = {part, static_cast<size_t>(Below(random, 400))};
  constexpr std::array kStatuses = {200, 404, 412, 416, 500};
  const Fault faults[] = {
      {.stall = point},
      {.cut = point},
      {.status = kStatuses[static_cast<size_t>(Below(random, kStatuses.size()))]},
      {.contentRange = "bytes 0-1/2"},
      {.bodyExcess = Below(random, 100) - 50},
      {.ignoreRange = true},
      {.etag = "\"another\""}};
  return faults[random() % std::size(faults)];
}

class Soak {
 public:
  Soak() {
    for (int s = 0; s < kServers; ++s)
      AddServer(s);
    for (auto& cache : caches_)
      Renew(cache);
    AddDecoders();
  }

  ~Soak() {
    for (auto& cache : caches_)
      registry_.Remove(cache.get());
  }

  void Run(std::chrono::seconds length) {
    const auto end = std::chrono::steady_clock::now() + length;
    std::vector<std::jthread> threads;
    unsigned seed = 1;
    const auto start = [&](auto work) {
      threads.emplace_back([work, random = Random(seed++)](std::stop_token stop) mutable {
        while (!stop.stop_requested())
          work(random);
      });
    };
    for (int i = 0; i < 2; ++i) {
      for (int s = 0; s < kServers; ++s)
        start([this, s, n = 0](Random& random) mutable { PreloadOne(s, n, random); });
      start([this](Random& random) { DecodeOne(random); });
    }
    start([this](Random& random) { ChangeSomething(random); });
    std::this_thread::sleep_until(end - length * 2 / 3);
    const int64_t early = ResidentKilobytes();
    std::this_thread::sleep_until(end);
    growth_ = ResidentKilobytes() - early;
    for (std::jthread& thread : threads)
      thread.request_stop();
    for (auto& server : servers_) {
      server->SetFaults([](uint64_t) { return Fault{}; });
      server->ReleaseStalls();
    }
  }

  // Prints what came of it; true when all that must hold does.
  bool Report() {
    const Account& a = registry_.account;
    std::printf("orders %ld, served %ld, errors %ld, thrown %ld, pictures %ld, KiB grown %ld\n",
                long(a.orders), long(a.served), long(a.errors), long(a.thrown), long(a.pictures),
                long(growth_));
    return a.orders == a.served + a.errors + a.thrown && a.served == a.outputs && a.served > 0 &&
           a.thrown > 0 && a.pictures > 0 && growth_ < kMostGrowthKilobytes;
  }

 private:
  void AddServer(int number) {
    auto& server = servers_.emplace_back(std::make_unique<FaultyServer>());
    for (int t = 0; t < kTracks; ++t) {
      ClipSpec spec;
      spec.file = folder_ / (std::to_string(number) + std::to_string(t));
      spec.container = t == 0 ? Container::Avi : Container::Mov;
      spec.interlaced = t == 1;
      spec.pictures = kPictures;
      MakeClip(spec);
      server->SetTrack(t, spec.file);
    }
    const StorageId id("127.0.0.1", server->Port());
    auto& preloader = preloaders_.emplace_back(std::make_unique<QELPreloader>());
    qel::SourceControlPtr control;
    QELPreloader::InitSource(source_, control, TrackId(id, 0));
    preloader->SetStorageSource(id, source_, control);
    preloader->SetExistingCacheUpdateQueues(&registry_);
    server->SetFaults([random = Random(99)](uint64_t) mutable { return AnyFault(random); });
  }

  void AddDecoders() {
    for (const auto& [width, height] : kSizes) {
      QELDecoder element;
      QELSampleDecoder::InitJPEGDecoder(source_, element, qel::FourCC_I420);
      const auto config = qel::CreateParametersCollectionInstance(qel::GetUpdateConfigPrototype(
          qel::ElementFactoryType_VideoDecoder, "qel", "video.mjpeg"));
      config->SetParamInt64("output_width", width);
      config->SetParamInt64("output_height", height);
      element.second->UpdateConfig(config);
      decoders_.push_back(std::make_unique<QELSampleDecoder>());
      decoders_.back()->SetDecoder(element);
      dispatcher_.AddDecoder(width, height, decoders_.back().get());
    }
  }

  void PreloadOne(int server, int& number, Random& random) {
    number = Below(random, 4) == 0 ? Below(random, kPictures + 2) : number + 1;
    const TrackId track(StorageId("127.0.0.1", servers_[size_t(server)]->Port()),
                        Below(random, kTracks + 1));  // one of them is not there
    const auto time = Time::TimePoint().FromRatio(uint64_t(number % (kPictures + 2)), 1, 25);
    const PreloadOrder order(time, kRate, AnyQueue(random), track);
    ++registry_.account.orders;
    try {
      const auto result = preloaders_[size_t(server)]->Preload(order);
      ++(result == IPreloader::PreloadResult::ERROR ? registry_.account.errors
                                                    : registry_.account.served);
    } catch (const std::runtime_error&) {
      ++registry_.account.thrown;
    }
  }

  void DecodeOne(Random& random) {
    const auto size = kSizes[random() % kSizes.size()];
    std::shared_ptr<ISample> sample;
    {
      const std::lock_guard<std::mutex> lock(cachesAccess_);
      sample = caches_[random() % kQueues]->Any(random);
    }
    if (!sample)
      return;
    DecodeOrder order;
    order.toDecode_ = sample.get();
    order.orderTp_ = sample->GetTimePoint();
    order.isInterlace_ = sample->GetDataKeys().size() == 2;
    order.decodeTopField_ = !order.isInterlace_ || Below(random, 2) == 0;
    order.fieldSampleRate_ = SampleRate(50, 1);
    order.width_ = size.first;
    order.height_ = size.second;
    sample->Protect(1);
    const std::unique_ptr<ISample> picture(dispatcher_.Decode(order));
    sample->Unprotect(1);
    registry_.account.pictures += picture ? 1 : 0;
  }

  // A queue dies, a resolution goes and comes back, a track is forgotten, a stall ends.
  void ChangeSomething(Random& random) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    Renew(caches_[random() % kQueues]);
    const size_t decoder = random() % kSizes.size();
    const auto [width, height] = kSizes[decoder];
    dispatcher_.RemoveDecoder(width, height);
    dispatcher_.AddDecoder(width, height, decoders_[decoder].get());
    const size_t server = random() % kServers;
    servers_[server]->ReleaseStalls();
    if (Below(random, 20) == 0) {
      try {
        preloaders_[server]->RemoveTrackId(
            TrackId(StorageId("127.0.0.1", servers_[server]->Port()), 1));
      } catch (const std::runtime_error&) {
      }
    }
  }

  void Renew(std::shared_ptr<Cache>& cache) {
    auto fresh = std::make_shared<Cache>();
    registry_.Add(fresh.get());
    const std::lock_guard<std::mutex> lock(cachesAccess_);
    registry_.Remove(cache.get());
    cache = std::move(fresh);
  }

  // Its queue may be gone when the order comes to it.
  CacheUpdateQueue* AnyQueue(Random& random) {
    const std::lock_guard<std::mutex> lock(cachesAccess_);
    return caches_[random() % kQueues].get();
  }

  static int64_t ResidentKilobytes() {
    std::ifstream statm("/proc/self/statm");
    int64_t pages = 0;
    statm >> pages >> pages;
    return pages * ::sysconf(_SC_PAGESIZE) / 1024;
  }

  TempFolder folder_;
  Registry registry_;
  std::vector<std::unique_ptr<FaultyServer>> servers_;
  std::vector<std::unique_ptr<QELPreloader>> preloaders_;
  qel::MediaSourcePtr source_;
  std::vector<std::unique_ptr<QELSampleDecoder>> decoders_;
  QELMultiResDecoder dispatcher_;
  int64_t growth_ = 0;

  std::mutex cachesAccess_;  // guards caches_
  std::array<std::shared_ptr<Cache>, kQueues> caches_;
};

}  // namespace

}  // namespace Moravel::Test

int main(int argc, char** argv) {
  using namespace Moravel::Test;
  qel::RegisterBuiltinElements();
  orl::mv::logging::SetLogLevel(orl::mv::logging::ILogger::Level_NoLog);
  qel::SetCurrentLoggerWriter(orl::mv::logging::CreateFrameworkLogWriter());
  Soak soak;
  soak.Run(std::chrono::seconds(argc > 1 ? std::stoi(argv[1]) : 120));
  return soak.Report() ? 0 : 1;
}
