#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "Allocations.h"
#include "Player/QELMultiResDecoder.h"
#include "Player/QELPreloader.h"
#include "elements/BuiltinElements.h"
#include "qelCore/SampleFactory.h"
#include "qelCore/StreamInfos.h"

namespace Moravel::Bench {

namespace {

using namespace Moravel::Player;

const TrackId kTrack(StorageId("server", 8080), 12);

qel::BufferConstPtr Bytes() {
  static const uint8_t byte = 1;
  return std::make_shared<qel::BufferView>(nullptr, &byte, 1);
}

qel::InfoConstPtr Info() {
  return std::make_shared<qel::VideoInfo>("video", 1920, 1080, 100, qel::EditRate(25, 1));
}

// Delivers the same container again and again, at no cost.
class FreeSource : public qel::ISource {
 public:
  void UpdateConfig(qel::ParametersCollectionInstanceConstPtr) override {}
  qel::MediaTime GotoTimeOffset(const qel::MediaTime& time, std::string) override { return time; }
  void SetInitConfig(qel::ParametersCollectionInstanceConstPtr) override {}
  qel::InfoContainerConstPtr GetDefinedOutput(std::string) override { return nullptr; }
  qel::SampleContainerConstPtr GetSample() override { return container_; }

 private:
  const qel::SampleContainerConstPtr container_ = qel::CreateSampleContainer(
      qel::SampleList{qel::CreateSample(Info(), qel::CreateChannelInfo(0), Bytes())},
      {{"StorageTimePoint",
        qel::TimeLimits(qel::MediaTime(qel::EditRate(25, 1), 50, nullptr), 1)}});
};

// Gives the same picture for every push, at no cost.
class FreeDecoder : public qel::IVideoDecoder {
 public:
  void UpdateConfig(qel::ParametersCollectionInstanceConstPtr) override {}
  void SetInitConfig(qel::ParametersCollectionInstanceConstPtr) override {}
  void DefineInput(qel::InfoContainerConstPtr, std::string) override {}
  qel::InfoContainerConstPtr GetDefinedInput(std::string) override { return input_; }
  void PushSample(qel::SampleContainerConstPtr) override { pending_ = picture_; }
  qel::SampleContainerConstPtr GetSample() override { return std::move(pending_); }

 private:
  const qel::InfoContainerConstPtr input_ = qel::CreateInfoContainer(Info(), nullptr);
  const qel::SampleContainerConstPtr picture_ = qel::CreateSampleContainer(
      qel::CreateVideoSample(Info(), qel::CreateChannelInfo(0), Bytes(), 1, 1, qel::FourCC_Y800),
      nullptr);
  qel::SampleContainerConstPtr pending_;
};

class DroppingQueue : public CacheUpdateQueue {
 public:
  void Push(const Output& output) override { std::unique_ptr<ISample>(output.sample_).reset(); }
};

void CountAllocations(benchmark::State& state, uint64_t before) {
  state.counters["allocations"] = benchmark::Counter(
      static_cast<double>(AllocationCount() - before), benchmark::Counter::kAvgIterations);
}

void PreloadOrderOverhead(benchmark::State& state) {
  const auto source = std::make_shared<FreeSource>();
  QELPreloader preloader;
  preloader.SetStorageSource(kTrack.StorageId(), source, source);
  DroppingQueue queue;
  const PreloadOrder order(Time::TimePoint().FromRatio(100, 1, 25), SampleRate(25, 1), &queue,
                           kTrack);
  const uint64_t before = AllocationCount();
  for (auto _ : state)
    benchmark::DoNotOptimize(preloader.Preload(order));
  CountAllocations(state, before);
}
BENCHMARK(PreloadOrderOverhead);

void DecodeOrderOverhead(benchmark::State& state) {
  const auto element = std::make_shared<FreeDecoder>();
  QELSampleDecoder decoder;
  decoder.SetDecoder({element, element});
  QELMultiResDecoder dispatcher;
  dispatcher.AddDecoder(1920, 1080, &decoder);
  QELSample sample;
  sample.SetContainer(FreeSource().GetSample());
  DecodeOrder order;
  order.toDecode_ = &sample;
  order.decodeTopField_ = true;
  order.width_ = 1920;
  order.height_ = 1080;
  const uint64_t before = AllocationCount();
  for (auto _ : state)
    benchmark::DoNotOptimize(std::unique_ptr<ISample>(dispatcher.Decode(order)));
  CountAllocations(state, before);
}
BENCHMARK(DecodeOrderOverhead);

}  // namespace

}  // namespace Moravel::Bench

int main(int argc, char** argv) {
  qel::RegisterBuiltinElements();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 2;
  benchmark::RunSpecifiedBenchmarks();
}
