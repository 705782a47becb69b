#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "DelayProxy.h"
#include "LoadedClip.h"
#include "elements/storage/TrackIndex.h"

namespace Moravel::Bench {

namespace {

using namespace Moravel::Player;

constexpr std::chrono::microseconds kOneWay(2500);
constexpr int64_t kBulkRange = 4 << 20;

class LocalFile : public qel::IFileBytes {
 public:
  explicit LocalFile(const std::filesystem::path& path)
      : size_(static_cast<int64_t>(std::filesystem::file_size(path))),
        stream_(path, std::ios::binary) {}
  int64_t Size() const override { return size_; }
  void ReadAt(int64_t offset, std::span<uint8_t> bytes) override {
    stream_.seekg(offset);
    stream_.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }

 private:
  const int64_t size_;
  std::ifstream stream_;
};

const qel::TrackIndex& Index() {
  static const qel::TrackIndex index = [] {
    LocalFile file(TheClipFile());
    return qel::ReadTrackIndex(file);
  }();
  return index;
}

std::vector<int64_t> RandomNumbers() {
  std::vector<int64_t> numbers(1024);
  std::mt19937 random(1);
  std::uniform_int_distribution<int64_t> any(0, Index().Count() - 1);
  std::generate(numbers.begin(), numbers.end(), [&] { return any(random); });
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

// One connection of bare libcurl that copies each body into memory, as far as there is room.
class BareCurl {
 public:
  explicit BareCurl(uint16_t port) : curl_(curl_easy_init(), curl_easy_cleanup) {
    const std::string url = "http://127.0.0.1:" + std::to_string(port) + "/tracks/1";
    curl_easy_setopt(curl_.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl_.get(), CURLOPT_WRITEFUNCTION, Write);
    curl_easy_setopt(curl_.get(), CURLOPT_WRITEDATA, this);
    curl_easy_setopt(curl_.get(), CURLOPT_BUFFERSIZE, 512L * 1024);
  }

  void Read(int64_t offset, int64_t size) {
    received_ = 0;
    const std::string range = std::to_string(offset) + "-" + std::to_string(offset + size - 1);
    curl_easy_setopt(curl_.get(), CURLOPT_RANGE, range.c_str());
    if (curl_easy_perform(curl_.get()) != CURLE_OK || received_ != size)
      throw std::runtime_error("bare libcurl failed");
  }

 private:
  static size_t Write(const char* data, size_t, size_t size, void* self) {
    auto& [curl, body, received] = *static_cast<BareCurl*>(self);
    const size_t room = body.size() - static_cast<size_t>(received) % body.size();
    std::copy_n(data, std::min(size, room), body.end() - static_cast<ptrdiff_t>(room));
    received += static_cast<int64_t>(size);
    return size;
  }

  const std::unique_ptr<CURL, void (*)(CURL*)> curl_;
  std::vector<char> body_ = std::vector<char>(kBulkRange);
  int64_t received_ = 0;
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
  StorageServer& server = TheClip().server_;
  const uint64_t requests = server.RequestCount();
  const uint64_t bytes = server.BytesRequested();
  for (auto _ : state)
    const Track track(TrackId(StorageId("127.0.0.1", server.Port()), 1));
  state.counters["requests"] = benchmark::Counter(
      static_cast<double>(server.RequestCount() - requests), benchmark::Counter::kAvgIterations);
  state.counters["bytes_per_index_byte"] =
      static_cast<double>(server.BytesRequested() - bytes) /
      static_cast<double>(state.iterations() * Index().Count() * kIndexEntryBytes);
}
BENCHMARK(OpenTrack)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

}  // namespace Moravel::Bench
