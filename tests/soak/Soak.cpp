#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <list>
#include <mutex>
#include <random>
#include <thread>

#include "Player/QELMultiResDecoder.h"
#include "Player/QELPreloader.h"
#include "elements/BuiltinElements.h"
#include "elements/StopScope.h"
#include "host/HostLogging.h"
#include "host/LiveQueues.h"
#include "qel/WorkflowStepImplementation.h"
#include "qelCore/LoggerWriter.h"
#include "support/ClipMaker.h"
#include "support/FaultyServer.h"
#include "support/Files.h"
#include "support/MemoryInUse.h"
#include "support/TempFolder.h"
#include "support/TestDecoder.h"

// soak [SECONDS]: tracks of several servers with random faults, queues that die with orders under
// way, registrations that come and go, hosts that stop what they ordered. At the end every order
// has had exactly one answer, and memory is flat; under the leak sanitizer, every sample has been
// destroyed.
namespace Moravel::Test {
namespace {

using namespace Player;

constexpr int kTracks = 2, kPictures = 60;
constexpr std::chrono::seconds kMostPatience{60};
constexpr int64_t kMostGrowth = 48 << 20;
constexpr std::array<std::pair<int, int>, 3> kSizes = {{{0, 0}, {32, 24}, {16, 12}}};

struct Random : std::mt19937 {
  explicit Random(unsigned seed) : std::mt19937(seed) {}
  int Below(size_t end) { return static_cast<int>((*this)() % end); }
};

// A cache of few samples, which may die at any time.
struct Cache : CacheUpdateQueue {
  void Push(const Output& output) override {
    const std::lock_guard lock(access);
    samples[next++ % samples.size()].reset(output.sample_);
  }
  std::shared_ptr<ISample> Any(Random& random) {
    const std::lock_guard lock(access);
    return samples[size_t(random.Below(samples.size()))];
  }
  std::mutex access;  // guards all below
  std::array<std::shared_ptr<ISample>, 8> samples;
  size_t next = 0;
};

struct Registry : LiveQueues {
  bool PushIfExists(CacheUpdateQueue* queue, const Output& output) override {
    ++outputs;
    return LiveQueues::PushIfExists(queue, output);
  }
  std::atomic<int64_t> outputs = 0;
};

Fault AnyFault(Random& random) {
  const Fault::Point point = {random.Below(2) == 0 ? Fault::Part::Header : Fault::Part::Body,
                              size_t(random.Below(400))};
  const Fault faults[] = {
      {.stall = point},
      {.cut = point},
      {.status = std::array{200, 404, 412, 416, 500}[random() % 5]},
      {.contentRange = "bytes 0-1/2"},
      {.bodyExcess = random.Below(100) - 50},
      {.ignoreRange = true},
      {.etag = "\"another\""},
      {.stall = Fault::Point{Fault::Part::Body, 50}, .drip = "!"},
      {.stall = Fault::Point{Fault::Part::Header, 30}, .drip = "X: y\r\n"},
      {.stall = Fault::Point{Fault::Part::Body, 0},
       .drip = "1;" + std::string(1 << 16, 'x'),
       .isFlood = true,
       .headerLines = "Transfer-Encoding: chunked\r\n"},
      {.stall = Fault::Point{Fault::Part::Header, 0}, .drip = "HTTP/1.1 100 Continue\r\n\r\n"},
      {.stall = point, .late = std::chrono::milliseconds(random.Below(300))},
      {.contentRange = "bytes 0-16383/9223372036854775807"},
      {.status = 302, .headerLines = "Location: http://127.0.0.1:1/\r\n"}};
  return random.Below(30) == 0 ? faults[random() % std::size(faults)] : Fault{};
}

// A file of 72 bytes that announces 2 GiB.
std::string GreatClaim() {
  using namespace std::string_literals;
  return "RIFF\x40\0\0\0AVI LIST\x00\xff\xff\x7fhdrlISFT\x00\xff\xff\x7f"s + std::string(40, 'x');
}

// The storage source, of a host that waits for nobody for long.
std::pair<qel::MediaSourcePtr, qel::SourceControlPtr> ImpatientSource(const StorageId& id) {
  const auto [source, control, unused] =
      qel::ImplementElement<qel::ElementFactoryType_Source>("qel.StorageSource", "storage", {});
  const auto config = CreateParametersCollectionInstance(
      qel::GetInitConfigPrototype(qel::ElementFactoryType_Source, "qel.StorageSource", "storage"));
  config->SetParamUTF8String("tcp_address", id.Address());
  config->SetParamInt64("tcp_port", id.Port());
  for (const char* key : {"stall_timeout_ms", "answer_timeout_ms", "rate_window_ms"})
    config->SetParamInt64(key, 100);
  config->SetParamInt64("open_timeout_ms", 1000);
  source->SetInitConfig(config);
  return {source, control};
}

// A server that breaks, and the preloader for it.
struct Storage {
  explicit Storage(Registry& registry) {
    for (const int track : {0, 1}) {
      ClipSpec spec = {.file = folder / std::to_string(track), .pictures = kPictures};
      spec.container = track == 0 ? Container::Avi : Container::Mov;
      spec.interlaced = track == 1;
      server.SetTrack(track, MakeClip(spec).file);
    }
    WriteFile(folder / "2", GreatClaim());
    server.SetTrack(2, folder / "2");
    const auto [source, control] = ImpatientSource(id);
    preloader.SetStorageSource(id, source, control);
    preloader.SetExistingCacheUpdateQueues(&registry);
    server.SetFaults([random = Random(99)](uint64_t) mutable { return AnyFault(random); });
  }

  const TempFolder folder;
  FaultyServer server;
  const StorageId id{"127.0.0.1", server.Port()};
  QELPreloader preloader;
  std::list<Descriptor> idle;  // connections to the embedded server that ask for nothing
};

class Soak {
 public:
  Soak() {
    std::generate(caches_.begin(), caches_.end(), [this] { return NewCache(); });
    for (size_t i = 0; i < kSizes.size(); ++i) {
      const auto [width, height] = kSizes[i];
      const TestDecoder element(NewTrack(), qel::FourCC_I420, width, height);
      decoders_[i].SetDecoder({element.filter, element.control});
      dispatcher_.AddDecoder(width, height, &decoders_[i]);
    }
  }

  // True when all that must hold did.
  bool Run(std::chrono::seconds length) {
    const auto end = std::chrono::steady_clock::now() + length;
    std::list<std::jthread> threads;
    auto start = [&, seed = 1u](auto act) mutable {
      threads.emplace_back([act, random = Random(seed++)](std::stop_token stop) mutable {
        while (!stop.stop_requested())
          act(random);
      });
    };
    for (int i = 0; i < 2; ++i) {
      for (Storage& storage : storages_)
        start([&, n = 0](Random& random) mutable { PreloadOne(storage, n, random); });
      start([this](Random& random) { DecodeOne(random); });
    }
    start([this](Random& random) { ChangeSomething(random); });
    std::this_thread::sleep_until(end - length * 2 / 3);
    const int64_t early = MemoryInUse();
    std::this_thread::sleep_until(end);
    // On a machine that is busy otherwise, chance takes its time.
    while (!HasSeenAll() && std::chrono::steady_clock::now() < end + kMostPatience)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const int64_t growth = MemoryInUse() - early;
    for (std::jthread& thread : threads)
      thread.request_stop();
    for (Storage& storage : storages_) {
      storage.server.SetFaults({});
      storage.server.ReleaseStalls();
    }
    threads.clear();
    std::printf("served %ld, errors %ld, exceptions %ld, pictures %ld, memory grew by %ld bytes\n",
                long(served_), long(errors_), long(thrown_), long(pictures_), long(growth));
    return served_ == registry_.outputs && HasSeenAll() && growth < kMostGrowth;
  }

 private:
  bool HasSeenAll() const { return served_ > 0 && errors_ > 0 && thrown_ > 0 && pictures_ > 0; }

  void PreloadOne(Storage& storage, int& number, Random& random) {
    number = (random.Below(4) == 0 ? random.Below(kPictures) : number + 1) % (kPictures + 2);
    const TrackId track(storage.id,
                        random.Below(kTracks + 2));  // one claims too much, one is not there
    const auto time = Time::TimePoint().FromRatio(uint64_t(number), 1, 25);
    const qel::StopScope scope(CurrentStop());
    try {  // the queue may die before the order comes to it
      const auto result = storage.preloader.Preload(
          PreloadOrder(time, SampleRate(25, 1), AnyCache(random).get(), track));
      ++(result == IPreloader::PreloadResult::ERROR ? errors_ : served_);
    } catch (const std::runtime_error&) {
      ++thrown_;
    }
  }

  void DecodeOne(Random& random) {
    const auto [width, height] = kSizes[random() % kSizes.size()];
    const std::shared_ptr<ISample> sample = AnyCache(random)->Any(random);
    if (!sample)
      return std::this_thread::yield();
    DecodeOrder order;
    order.toDecode_ = sample.get();
    order.orderTp_ = sample->GetTimePoint();
    order.isInterlace_ = sample->GetDataKeys().size() == 2;
    order.decodeTopField_ = !order.isInterlace_ || random.Below(2) == 0;
    order.fieldSampleRate_ = SampleRate(50, 1);
    order.width_ = width;
    order.height_ = height;
    pictures_ += std::unique_ptr<ISample>(dispatcher_.Decode(order)) ? 1 : 0;
  }

  // A queue dies, a size goes and comes back, a track is forgotten, stalls end.
  void ChangeSomething(Random& random) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::shared_ptr<Cache> cache = NewCache();
    {
      const std::lock_guard lock(cachesAccess_);
      std::swap(cache, caches_[random() % caches_.size()]);
      registry_.Remove(cache.get());
    }
    const size_t i = random() % kSizes.size();
    dispatcher_.RemoveDecoder(kSizes[i].first, kSizes[i].second);
    dispatcher_.AddDecoder(kSizes[i].first, kSizes[i].second, &decoders_[i]);
    Storage& storage = random.Below(2) == 0 ? storages_.front() : storages_.back();
    if (random.Below(50) == 0)
      storage.server.ReleaseStalls();
    storage.idle.push_back(storage.server.ConnectBehind());
    if (storage.idle.size() > 200)
      storage.idle.clear();
    if (random.Below(10) == 0) {
      const std::lock_guard lock(cachesAccess_);
      std::exchange(stop_, std::stop_source()).request_stop();
    }
    if (random.Below(20) == 0)
      storage.preloader.RemoveTrackId(TrackId(storage.id, 1));
  }

  std::shared_ptr<Cache> NewCache() {
    auto cache = std::make_shared<Cache>();
    registry_.Add(cache.get());
    return cache;
  }
  std::shared_ptr<Cache> AnyCache(Random& random) {
    const std::lock_guard lock(cachesAccess_);
    return caches_[random() % caches_.size()];
  }

  std::stop_token CurrentStop() {
    const std::lock_guard lock(cachesAccess_);
    return stop_.get_token();
  }

  Registry registry_;
  std::mutex cachesAccess_;  // guards caches_ and stop_
  std::stop_source stop_;    // ends the orders that are under way
  std::array<std::shared_ptr<Cache>, 3> caches_;
  std::array<Storage, 2> storages_ = {Storage(registry_), Storage(registry_)};
  std::array<QELSampleDecoder, kSizes.size()> decoders_;
  QELMultiResDecoder dispatcher_;
  std::atomic<int64_t> served_ = 0, errors_ = 0, thrown_ = 0, pictures_ = 0;
};

}  // namespace
}  // namespace Moravel::Test

int main(int argc, char** argv) {
  qel::RegisterBuiltinElements();
  orl::mv::logging::SetLogLevel(orl::mv::logging::ILogger::Level_NoLog);
  qel::SetCurrentLoggerWriter(orl::mv::logging::CreateFrameworkLogWriter());
  Moravel::Test::Soak soak;
  return soak.Run(std::chrono::seconds(argc > 1 ? std::stoi(argv[1]) : 120)) ? 0 : 1;
}
