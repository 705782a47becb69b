#include <benchmark/benchmark.h>
#include <turbojpeg.h>

#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "BareTurboJpeg.h"
#include "LoadedClip.h"
#include "Player/QELMultiResDecoder.h"
#include "elements/mjpeg/SharedPictures.h"
#include "qel/WorkflowStepImplementation.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace Moravel::Bench {

namespace {

using namespace Moravel::Player;
using Size = std::pair<int, int>;

// The size of the clip's pictures, halved `halvings` times.
Size Halved(int halvings) {
  const qel::IVideoInfo& info = TheClip().track_->Info();
  return {info.GetWidth() >> halvings, info.GetHeight() >> halvings};
}

// The bytes of the frame, or of the top field.
struct Encoded {
  explicit Encoded(const ISample& sample) {
    data = sample.GetData(*sample.GetDataKeys().rbegin(), size);
  }
  const uint8_t* data;
  uint64_t size = 0;
};

// The planar format that holds the clip's chroma as it is coded, as bare TurboJPEG delivers it.
qel::FourCC PlanarFormat() {
  const std::unique_ptr<void, int (*)(void*)> decoder(tjInitDecompress(), tjDestroy);
  const Encoded encoded(*TheClip().cache_.samples_.front());
  int width = 0, height = 0, subsampling = 0, colorspace = 0;
  tjDecompressHeader3(decoder.get(), encoded.data, encoded.size, &width, &height, &subsampling,
                      &colorspace);
  return subsampling == TJSAMP_422 ? qel::FourCC_I422 : qel::FourCC_I420;
}

// A dispatcher with a decoder for each size.
class Decoders {
 public:
  explicit Decoders(const std::vector<Size>& sizes) {
    for (const auto& [width, height] : sizes) {
      QELDecoder element;
      QELSampleDecoder::InitJPEGDecoder(TheClip().track_->Source(), element, PlanarFormat());
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

  void Decode(ISample* sample, Size size) {
    DecodeOrder order;
    order.toDecode_ = sample;
    order.decodeTopField_ = true;
    order.width_ = size.first;
    order.height_ = size.second;
    if (!std::unique_ptr<ISample>(dispatcher_.Decode(order)))
      throw std::runtime_error("no picture");
  }

 private:
  std::vector<std::unique_ptr<QELSampleDecoder>> decoders_;
  QELMultiResDecoder dispatcher_;
};

// Walks over the samples of the clip, round and round.
class Cursor {
 public:
  explicit Cursor(size_t first = 0) : next_(first) {}
  ISample* Next() {
    const auto& samples = TheClip().cache_.samples_;
    return samples[next_++ % samples.size()].get();
  }

 private:
  size_t next_;
};

// One picture at the first `sizes` of 1/1, 1/2, 1/4.
void DecodeSizes(benchmark::State& state) {
  std::vector<Size> sizes;
  for (int halvings = 0; halvings < state.range(0); ++halvings)
    sizes.push_back(Halved(halvings));
  Decoders decoders(sizes);
  Cursor cursor;
  const auto decode = [&] {
    ISample* const sample = cursor.Next();
    for (const Size& size : sizes)
      decoders.Decode(sample, size);
  };
  // What benchmarks before this one wanted of the track is forgotten.
  for (int64_t push = 0; push < qel::mjpeg::kWantedPushes; ++push)
    decode();
  for (auto _ : state)
    decode();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(DecodeSizes)->Arg(1)->Arg(3)->Unit(benchmark::kMillisecond);

void DecodeBareTurboJpeg(benchmark::State& state) {
  BareTurboJpeg decoder;
  Cursor cursor(static_cast<size_t>(state.thread_index()));
  for (auto _ : state) {
    const Encoded encoded(*cursor.Next());
    decoder.Decode(encoded.data, encoded.size);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(DecodeBareTurboJpeg)->Unit(benchmark::kMillisecond);
// What two cores can reach.
BENCHMARK(DecodeBareTurboJpeg)->Threads(2)->Unit(benchmark::kMillisecond)->UseRealTime();

void DecodeAvcodec(benchmark::State& state) {
  const auto freeContext = [](AVCodecContext* context) { avcodec_free_context(&context); };
  const auto freeFrame = [](AVFrame* frame) { av_frame_free(&frame); };
  const auto freePacket = [](AVPacket* packet) { av_packet_free(&packet); };
  const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_MJPEG);
  const std::unique_ptr<AVCodecContext, decltype(freeContext)> context(
      avcodec_alloc_context3(codec), freeContext);
  context->thread_count = 1;
  if (avcodec_open2(context.get(), codec, nullptr) != 0)
    throw std::runtime_error("no decoder");
  const std::unique_ptr<AVFrame, decltype(freeFrame)> frame(av_frame_alloc(), freeFrame);
  const std::unique_ptr<AVPacket, decltype(freePacket)> packet(av_packet_alloc(), freePacket);
  // The decoder wants its input padded and reference-counted: prepared once, outside the loop.
  std::vector<std::unique_ptr<AVPacket, decltype(freePacket)>> packets;
  for (const auto& sample : TheClip().cache_.samples_) {
    const Encoded encoded(*sample);
    packets.emplace_back(av_packet_alloc(), freePacket);
    av_new_packet(packets.back().get(), static_cast<int>(encoded.size));
    std::copy_n(encoded.data, encoded.size, packets.back()->data);
  }
  size_t next = 0;
  for (auto _ : state) {
    if (avcodec_send_packet(context.get(), packets[next++ % packets.size()].get()) != 0 ||
        avcodec_receive_frame(context.get(), frame.get()) != 0)
      throw std::runtime_error("no picture");
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(DecodeAvcodec)->Unit(benchmark::kMillisecond);

// Four sizes through one dispatcher, from as many threads as the argument says; each thread has
// pictures of its own, and so many of them that the last one to end hardly counts.
void DecodeFourSizes(benchmark::State& state) {
  constexpr int kSizes = 4;
  constexpr int kPictures = 12;
  constexpr int kRounds = 6;
  const auto threads = static_cast<int>(state.range(0));
  std::vector<Size> sizes;
  for (int i = 0; i < kSizes; ++i)
    sizes.emplace_back(Halved(0).first - 2 * i, Halved(0).second);
  Decoders decoders(sizes);
  const auto decode = [&](int size) {
    for (int round = 0; round < kRounds; ++round) {
      Cursor cursor(static_cast<size_t>(size * kPictures));
      for (int i = 0; i < kPictures; ++i)
        decoders.Decode(cursor.Next(), sizes[static_cast<size_t>(size)]);
    }
  };
  for (auto _ : state) {
    if (threads == 1) {
      for (int size = 0; size < kSizes; ++size)
        decode(size);
    } else {
      std::vector<std::jthread> workers;
      for (int size = 0; size < kSizes; ++size)
        workers.emplace_back(decode, size);
    }
  }
  state.SetItemsProcessed(state.iterations() * kSizes * kRounds * kPictures);
}
BENCHMARK(DecodeFourSizes)->Arg(1)->Arg(4)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace

}  // namespace Moravel::Bench
