#include <benchmark/benchmark.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "BareCurl.h"
#include "BareTurboJpeg.h"
#include "DelayProxy.h"
#include "LoadedClip.h"
#include "Player/QELMultiResDecoder.h"

// From a track that nobody opened before to its first picture, with the round trip given in ms.
namespace Moravel::Bench {

namespace {

using namespace Moravel::Player;

std::chrono::microseconds OneWay(const benchmark::State& state) {
  return std::chrono::microseconds(500 * state.range(0));
}

void FirstPicture(benchmark::State& state) {
  const DelayProxy link(TheClip().server_.Port(), OneWay(state));
  for (auto _ : state) {
    Track track(TrackId(StorageId("127.0.0.1", link.Port()), 1));
    QELDecoder element;
    QELSampleDecoder::InitJPEGDecoder(track.Source(), element, qel::FourCC_I420);
    QELSampleDecoder decoder;
    decoder.SetDecoder(element);
    KeepingQueue queue;
    track.Preload(0, queue);
    DecodeOrder order;
    order.toDecode_ = queue.samples_.front().get();
    order.decodeTopField_ = true;
    order.width_ = track.Info().GetWidth();
    order.height_ = track.Info().GetHeight();
    if (!std::unique_ptr<ISample>(decoder.Decode(order)))
      throw std::runtime_error("no picture");
  }
}
BENCHMARK(FirstPicture)->Arg(0)->Arg(40)->Unit(benchmark::kMillisecond)->UseRealTime();

// The round trips that nobody can do without who knows where they lie: for the index and for the
// picture.
void BareFirstPicture(benchmark::State& state) {
  const DelayProxy link(TheClip().server_.Port(), OneWay(state));
  const qel::TrackIndex::Sample first = Index().At(0), last = Index().At(Index().Count() - 1);
  const int64_t index = last.offset + last.size + last.size % 2;
  const auto size = static_cast<int64_t>(std::filesystem::file_size(TheClipFile()));
  for (auto _ : state) {
    BareCurl curl(link.Port());
    BareTurboJpeg decoder;
    curl.Read(index, size - index);
    curl.Read(first.offset, first.size);
    decoder.Decode(curl.Last(), static_cast<size_t>(first.size));
  }
}
BENCHMARK(BareFirstPicture)->Arg(0)->Arg(40)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

}  // namespace Moravel::Bench
