#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "BareCurl.h"
#include "DelayProxy.h"
#include "LoadedClip.h"

namespace Moravel::Bench {

namespace {

using namespace Moravel::Player;

constexpr std::chrono::microseconds kOneWay(2500);

std::vector<int64_t> RandomNumbers() {
  std::vector<int64_t> numbers(1024);
  std::mt19937 random(1);
  std::uniform_int_distribution<int64_t> any(0, Index().Count() - 1);
  for (size_t i = 0; i < numbers.size(); ++i) {
    do {  // three at the same distance would be a pattern
      numbers[i] = any(random);
    } while (i >= 2 && numbers[i] - numbers[i - 1] == numbers[i - 1] - numbers[i - 2]);
  }
  return numbers;
}

// Counts what comes and forgets it.
class CountingQueue : public CacheUpdateQueue {
 public:
  void Push(const Output& output) override {
    const std::unique_ptr<ISample> sample(output.sample_);
    for (const std::string& key : sample->GetDataKeys()) {
      uint64_t size = 0;
      sample->GetData(key, size);
      bytes_ += static_cast<int64_t>(size);
    }
  }

  int64_t bytes_ = 0;
};

void PreloadRandom(benchmark::State& state) {
  StorageServer& server = TheClip().server_;
  Track& track = *TheClip().track_;
  const std::vector<int64_t> numbers = RandomNumbers();
  CountingQueue queue;
  const uint64_t requests = server.RequestCount();
  const uint64_t bytes = server.BytesRequested();
  size_t next = 0;
  for (auto _ : state)
    track.Preload(numbers[next++ % numbers.size()], queue);
  state.SetItemsProcessed(state.iterations());
  state.counters["requests"] = benchmark::Counter(
      static_cast<double>(server.RequestCount() - requests), benchmark::Counter::kAvgIterations);
  state.counters["extra_bytes"] = benchmark::Counter(
      static_cast<double>(server.BytesRequested() - bytes) - static_cast<double>(queue.bytes_),
      benchmark::Counter::kAvgIterations);
}
BENCHMARK(PreloadRandom)->Unit(benchmark::kMicrosecond)->UseRealTime();

void BareCurlRandom(benchmark::State& state) {
  BareCurl curl(TheClip().server_.Port());
  const std::vector<int64_t> numbers = RandomNumbers();
  size_t next = 0;
  for (auto _ : state) {
    const qel::TrackIndex::Sample sample = Index().At(numbers[next++ % numbers.size()]);
    curl.Read(sample.offset, sample.size);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BareCurlRandom)->Unit(benchmark::kMicrosecond)->UseRealTime();

// All samples of the track in order, from a server at that port.
void ReadThrough(benchmark::State& state, uint16_t port) {
  StorageServer& server = TheClip().server_;
  Track track(TrackId(StorageId("127.0.0.1", port), 1));
  CountingQueue queue;
  const uint64_t requests = server.RequestCount();
  for (auto _ : state) {
    for (int64_t n = 0; n < track.SampleCount(); ++n)
      track.Preload(n, queue);
  }
  state.SetBytesProcessed(queue.bytes_);
  state.counters["requests_per_sample"] =
      static_cast<double>(server.RequestCount() - requests) /
      static_cast<double>(state.iterations() * track.SampleCount());
}

// The same bytes with bare libcurl in ranges of `step` bytes.
void ReadBulk(benchmark::State& state, uint16_t port, int64_t step) {
  const qel::TrackIndex& index = Index();
  const int64_t begin = index.At(0).offset;
  const qel::TrackIndex::Sample last = index.At(index.Count() - 1);
  const int64_t end = last.offset + last.size;
  BareCurl curl(port);
  for (auto _ : state) {
    for (int64_t at = begin; at < end; at += step)
      curl.Read(at, std::min(step, end - at));
  }
  state.SetBytesProcessed(state.iterations() * (end - begin));
}

void PreloadSequential(benchmark::State& state) {
  ReadThrough(state, TheClip().server_.Port());
}
BENCHMARK(PreloadSequential)->Unit(benchmark::kMillisecond)->UseRealTime();

void BareCurlSequential(benchmark::State& state) {
  ReadBulk(state, TheClip().server_.Port(), kBulkRange);
}
BENCHMARK(BareCurlSequential)->Unit(benchmark::kMillisecond)->UseRealTime();

void PreloadOverLink(benchmark::State& state) {
  const DelayProxy link(TheClip().server_.Port(), kOneWay);
  ReadThrough(state, link.Port());
}
BENCHMARK(PreloadOverLink)->Unit(benchmark::kMillisecond)->UseRealTime();

// The link's own rate: the whole track in one request.
void BulkOverLink(benchmark::State& state) {
  const DelayProxy link(TheClip().server_.Port(), kOneWay);
  ReadBulk(state, link.Port(), INT64_MAX / 2);
}
BENCHMARK(BulkOverLink)->Unit(benchmark::kMillisecond)->UseRealTime();

// Opening the track, and what of its file is read for it; an AVI's index has 16 bytes a sample.
void OpenTrack(benchmark::State& state) {
  constexpr int64_t kIndexEntryBytes = 16;
  constexpr int64_t kTrack = 2;  // that nobody else has open, whose index would be used
  StorageServer& server = TheClip().server_;
  server.AddTrack(kTrack, TheClipFile());
  const uint64_t requests = server.RequestCount();
  const uint64_t bytes = server.BytesRequested();
  for (auto _ : state)
    const Track track(TrackId(StorageId("127.0.0.1", server.Port()), kTrack));
  state.counters["requests"] = benchmark::Counter(
      static_cast<double>(server.RequestCount() - requests), benchmark::Counter::kAvgIterations);
  state.counters["bytes_per_index_byte"] =
      static_cast<double>(server.BytesRequested() - bytes) /
      static_cast<double>(state.iterations() * Index().Count() * kIndexEntryBytes);
}
BENCHMARK(OpenTrack)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

}  // namespace Moravel::Bench
