// Brings one sample of a track from a storage server and decodes it:  embed ADDRESS PORT TRACK
#include <cstdlib>
#include <iostream>
#include <memory>

#include "Player/QELMultiResDecoder.h"
#include "Player/QELPreloader.h"
#include "elements/BuiltinElements.h"

using namespace Moravel;

// The host's cache: it owns the samples that it is given.
struct Cache : Player::CacheUpdateQueue {
  void Push(const Player::Output& output) override { sample.reset(output.sample_); }
  std::unique_ptr<Player::ISample> sample;
};

int main(int, char** argv) {
  qel::RegisterBuiltinElements();
  const Player::TrackId track({argv[1], std::atoi(argv[2])}, std::atoi(argv[3]));
  qel::MediaSourcePtr source;
  qel::SourceControlPtr control;
  Player::QELPreloader::InitSource(source, control, track);
  Player::QELPreloader preloader;  // one for each storage server
  preloader.SetStorageSource(track.StorageId(), source, control);

  Cache cache;
  const Time::TimePoint time = Time::TimePoint().FromRatio(2, 1, 1);  // two seconds
  preloader.Preload(Player::PreloadOrder(time, Player::SampleRate(25, 1), &cache, track));

  Player::QELDecoder element;
  Player::QELSampleDecoder::InitJPEGDecoder(source, element, qel::FourCC_I420);
  Player::QELSampleDecoder decoder;
  decoder.SetDecoder(element);
  Player::QELMultiResDecoder decoders;  // one decoder for each size that is wanted
  decoders.AddDecoder(1280, 720, &decoder);

  Player::DecodeOrder order;
  order.toDecode_ = cache.sample.get();
  order.orderTp_ = time;
  order.decodeTopField_ = true;  // of a progressive track: the frame
  order.width_ = 1280;
  order.height_ = 720;
  const std::unique_ptr<Player::ISample> picture(decoders.Decode(order));
  if (!picture)
    return EXIT_FAILURE;  // the log says why
  uint64_t size = 0;
  const uint8_t* bytes = picture->GetData(*picture->GetDataKeys().begin(), size);
  return bytes != nullptr && std::cout << size << " bytes of I420\n" ? EXIT_SUCCESS : EXIT_FAILURE;
}
