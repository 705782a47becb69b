#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "BareCurl.h"
#include "DelayProxy.h"
#include "LoadedClip.h"

// Preloads through a link to a server that is far away: its bytes take their time, and no more than
// so many arrive in a second.
namespace Moravel::Bench {

namespace {

using namespace Moravel::Player;
using Clock = std::chrono::steady_clock;

constexpr int64_t kLinkRate = 50'000'000;

std::unique_ptr<DelayProxy> Link(int64_t roundTripMs) {
  return std::make_unique<DelayProxy>(TheClip().server_.Port(),
                                      std::chrono::microseconds(500 * roundTripMs), kLinkRate);
}

double SecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

TrackId TrackBehind(const DelayProxy& link) {
  return {StorageId("127.0.0.1", link.Port()), 1};
}

// From the beginning or the end, as far as there are samples.
std::vector<int64_t> Along(int64_t samples, int64_t step, int64_t count) {
  std::vector<int64_t> numbers;
  for (int64_t number = step > 0 ? 0 : samples - 1; number >= 0 && number < samples && count > 0;
       number += step, --count)
    numbers.push_back(number);
  return numbers;
}

// Each run with a track that is fresh: how a pattern begins counts as well.
void Preload(benchmark::State& state, const std::vector<int64_t>& numbers) {
  StorageServer& server = TheClip().server_;
  const auto link = Link(state.range(0));
  double requests = 0, seconds = 0;
  for (auto _ : state) {
    Track track(TrackBehind(*link));
    KeepingQueue queue;
    const uint64_t before = server.RequestCount();
    const auto begin = Clock::now();
    for (const int64_t number : numbers) {
      track.Preload(number, queue);
      queue.samples_.clear();
    }
    state.SetIterationTime(SecondsSince(begin));
    seconds += SecondsSince(begin);
    requests += static_cast<double>(server.RequestCount() - before);
  }
  const auto preloads =
      static_cast<double>(state.iterations()) * static_cast<double>(numbers.size());
  state.counters["samples_per_second"] = preloads / seconds;
  state.counters["requests_per_sample"] = requests / preloads;
}

// Round trip in ms, distance, samples.
void PreloadAlong(benchmark::State& state) {
  Preload(state, Along(TheClip().track_->SampleCount(), state.range(1), state.range(2)));
}
BENCHMARK(PreloadAlong)
    ->UseManualTime()
    ->Iterations(1)
    ->ArgsProduct({{5, 40}, {1, -1}, {1000}})
    ->ArgsProduct({{40}, {1, 2, -2}, {480}})
    ->ArgsProduct({{40}, {1, 4, -4}, {240}})
    ->ArgsProduct({{40}, {1, 8, -8}, {120}});

// Twenty forward, twenty back, and so on.
void PreloadJog(benchmark::State& state) {
  std::vector<int64_t> numbers;
  for (int64_t leg = 0; leg < 12; ++leg) {
    for (int64_t i = 0; i < 20; ++i)
      numbers.push_back(100 + (leg % 2 == 0 ? i : 19 - i));
  }
  Preload(state, numbers);
}
BENCHMARK(PreloadJog)->UseManualTime()->Iterations(1)->Arg(40);

// What the server was asked for beyond what was read, when a pattern ends after so many samples:
// against what may be wasted, four samples or a tenth.
void WasteOfAPattern(benchmark::State& state) {
  StorageServer& server = TheClip().server_;
  const auto link = Link(40);
  const int64_t step = state.range(0), count = state.range(1);
  double waste = 0;
  for (auto _ : state) {
    Track track(TrackBehind(*link));
    KeepingQueue queue;
    const uint64_t before = server.BytesRequested();
    const auto begin = Clock::now();
    for (const int64_t number : Along(track.SampleCount(), step, count))
      track.Preload(number, queue);
    state.SetIterationTime(SecondsSince(begin));
    uint64_t used = 0;
    for (const auto& sample : queue.samples_) {
      uint64_t size = 0;
      sample->GetData("video", size);
      used += size + 8;  // with the chunk's header
    }
    const auto asked = static_cast<double>(server.BytesRequested() - before);
    const auto wasted = asked - static_cast<double>(used);
    const auto allowed =
        static_cast<double>(used) * std::max(0.1, 4.0 / static_cast<double>(count));
    waste = wasted / allowed;
  }
  state.counters["of_allowed"] = waste;
}
BENCHMARK(WasteOfAPattern)
    ->UseManualTime()
    ->Iterations(1)
    ->ArgsProduct({{1, -1}, {3, 10, 100, 500}});

// So many readers at once, each with a connection of its own.
template <typename MakeReader>
void ReadAtRandom(benchmark::State& state, const MakeReader& makeReader) {
  constexpr int64_t kReads = 40;
  const auto link = Link(40);
  double seconds = 0;
  for (auto _ : state) {
    std::vector<decltype(makeReader(*link))> readers;
    for (int64_t i = 0; i < state.range(0); ++i)
      readers.push_back(makeReader(*link));
    const auto begin = Clock::now();
    {
      std::vector<std::jthread> threads;
      for (auto& reader : readers) {
        threads.emplace_back([&reader, seed = threads.size()] {
          std::mt19937 random(static_cast<unsigned>(seed));
          std::uniform_int_distribution<int64_t> any(0, Index().Count() - 1);
          for (int64_t i = 0; i < kReads; ++i)
            reader(any(random));
        });
      }
    }
    state.SetIterationTime(SecondsSince(begin));
    seconds += SecondsSince(begin);
  }
  state.counters["samples_per_second"] =
      static_cast<double>(state.iterations() * kReads * state.range(0)) / seconds;
}

void PreloadRandomFar(benchmark::State& state) {
  ReadAtRandom(state, [](const DelayProxy& link) {
    return [track = std::make_unique<Track>(TrackBehind(link))](int64_t number) {
      KeepingQueue queue;
      track->Preload(number, queue);
    };
  });
}
BENCHMARK(PreloadRandomFar)->UseManualTime()->Iterations(1)->Arg(1)->Arg(4)->Arg(16);

void BareCurlRandomFar(benchmark::State& state) {
  ReadAtRandom(state, [](const DelayProxy& link) {
    auto curl = std::make_unique<BareCurl>(link.Port());
    curl->Read(0, 1);  // connects
    return [curl = std::move(curl)](int64_t number) {
      const qel::TrackIndex::Sample sample = Index().At(number);
      curl->Read(sample.offset, sample.size);
    };
  });
}
BENCHMARK(BareCurlRandomFar)->UseManualTime()->Iterations(1)->Arg(1)->Arg(4)->Arg(16);

}  // namespace

}  // namespace Moravel::Bench
