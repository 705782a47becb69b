#include "tracks/TrackDecoders.h"

#include "qel/WorkflowStepImplementation.h"

namespace Moravel::Play {

namespace {

Player::QELDecoder MakeElement(const qel::MediaSourcePtr& source, qel::FourCC format,
                               const Size& size) {
  Player::QELDecoder element;
  Player::QELSampleDecoder::InitJPEGDecoder(source, element, format);
  const auto config = qel::CreateParametersCollectionInstance(
      qel::GetUpdateConfigPrototype(qel::ElementFactoryType_VideoDecoder, "qel", "video.mjpeg"));
  qel::CheckPointer(config, "GetUpdateConfigPrototype failed (VideoDecoder)");
  config->SetParamInt64("output_width", size.width);
  config->SetParamInt64("output_height", size.height);
  element.second->UpdateConfig(config);
  return element;
}

}  // namespace

TrackDecoders::TrackDecoders(const qel::MediaSourcePtr& source, qel::FourCC format,
                             const std::vector<Size>& sizes)
    : dispatcher_(std::make_unique<Player::QELMultiResDecoder>()) {
  for (const Size& size : sizes) {
    decoders_.push_back(std::make_unique<Player::QELSampleDecoder>());
    decoders_.back()->SetDecoder(MakeElement(source, format, size));
    dispatcher_->AddDecoder(size.width, size.height, decoders_.back().get());
  }
}

std::shared_ptr<DecodersOfWorkers> DecoderPool::For(const Track& track,
                                                    const qel::MediaSourcePtr& source) {
  const std::lock_guard<std::mutex> lock(decodersAccess_);
  auto& decoders = decoders_[{track.ownSize.width, track.ownSize.height, track.interlaced}];
  if (!decoders) {
    auto made = std::make_shared<DecodersOfWorkers>();
    for (int worker = 0; worker < workers_; ++worker)
      made->emplace_back(source, format_, track.DecodedSizes());
    decoders = made;
  }
  return decoders;
}

}  // namespace Moravel::Play
