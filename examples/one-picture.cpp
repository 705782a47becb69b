// Brings one sample of a track from a storage server and decodes it:
//   one-picture ADDRESS PORT TRACK
#include <cstdlib>
#include <iostream>
#include <memory>

#include "Player/QELPreloader.h"
#include "Player/QELSampleDecoder.h"
#include "elements/BuiltinElements.h"

using namespace Moravel;

// The host's cache: it owns the samples that it is given.
struct Cache : Player::CacheUpdateQueue {
  void Push(const Player::Output& output) override { sample.reset(output.sample_); }
  std::unique_ptr<Player::ISample> sample;
};

int main(int argc, char** argv) try {
  if (argc != 4)
    throw std::runtime_error("usage: one-picture ADDRESS PORT TRACK");
  const Player::TrackId track({argv[1], std::atoi(argv[2])}, std::atoi(argv[3]));
  qel::RegisterBuiltinElements();  // before anything looks for elements
  qel::MediaSourcePtr source;
  qel::SourceControlPtr control;
  Player::QELPreloader::InitSource(source, control, track);
  Player::QELDecoder element;
  Player::QELSampleDecoder::InitJPEGDecoder(source, element, qel::FourCC_I420);
  const auto size = qel::CreateParametersCollectionInstance(
      qel::GetUpdateConfigPrototype(qel::ElementFactoryType_VideoDecoder, "qel", "video.mjpeg"));
  size->SetParamInt64("output_width", 640);
  size->SetParamInt64("output_height", 360);
  element.second->UpdateConfig(size);
  Player::QELSampleDecoder decoder;
  decoder.SetDecoder(element);

  Player::QELPreloader preloader;  // one for each storage server
  preloader.SetStorageSource(track.StorageId(), source, control);
  Cache cache;
  const Time::TimePoint time = Time::TimePoint().FromRatio(2, 1, 1);  // two seconds
  preloader.Preload(Player::PreloadOrder(time, Player::SampleRate(25, 1), &cache, track));
  if (!cache.sample)
    throw std::runtime_error("the track has no picture at that time");

  Player::DecodeOrder order;
  order.toDecode_ = cache.sample.get();
  order.orderTp_ = time;
  order.decodeTopField_ = true;  // of a progressive track: the frame
  const std::unique_ptr<Player::ISample> picture(decoder.Decode(order));
  if (!picture)
    throw std::runtime_error("not decoded; the log says why");
  uint64_t bytes = 0;
  picture->GetData(*picture->GetDataKeys().begin(), bytes);
  std::cout << bytes << " bytes of I420\n";
  return EXIT_SUCCESS;
} catch (const std::exception& error) {
  std::cerr << error.what() << "\n";
  return EXIT_FAILURE;
}
