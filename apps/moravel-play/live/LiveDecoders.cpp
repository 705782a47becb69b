#include "live/LiveDecoders.h"

#include <algorithm>
#include <memory>

#include "Player/DecodeOrder.h"
#include "Player/QELSample.h"
#include "playing/FrameworkLines.h"
#include "qelCore/StreamInfos.h"

namespace Moravel::Play {

namespace {

constexpr size_t kMaxKnown = 16;  // tracks times sizes

// What a decoder has to know of a source. The info is of its own, so that the elements do not keep
// pictures for each other: nobody wants the same picture in several sizes here.
class DescribedSource : public qel::IMediaSource {
 public:
  explicit DescribedSource(const Track& track)
      : output_(qel::CreateInfoContainer(
            std::make_shared<qel::VideoInfo>(
                "video", track.ownSize.width, track.ownSize.height, track.sampleCount,
                qel::EditRate(static_cast<uint32_t>(track.sampleRate.Numerator()),
                              static_cast<uint32_t>(track.sampleRate.Denominator()))),
            nullptr)) {}

  void SetInitConfig(qel::ParametersCollectionInstanceConstPtr) override {}
  qel::InfoContainerConstPtr GetDefinedOutput(std::string) override { return output_; }
  qel::SampleContainerConstPtr GetSample() override { return nullptr; }

 private:
  const qel::InfoContainerConstPtr output_;
};

qel::VideoSampleConstPtr ImageOf(const std::unique_ptr<Player::ISample>& decoded) {
  const auto* const sample = dynamic_cast<const Player::QELSample*>(decoded.get());
  return sample == nullptr ? nullptr : sample->GetContainer()->GetVideoSampleList({}, {}).front();
}

}  // namespace

Player::ISampleDecoder& LiveDecoders::DecodersFor(const Track& track, const Size& size) {
  const auto found = std::find_if(known_.begin(), known_.end(), [&](const Known& known) {
    return known.track == track.index && known.size == size;
  });
  if (found != known_.end()) {
    known_.splice(known_.begin(), known_, found);
  } else {
    known_.push_front(
        {track.index, size,
         TrackDecoders(std::make_shared<DescribedSource>(track), qel::FourCC_I422, {size})});
    if (known_.size() > kMaxKnown)
      known_.pop_back();
  }
  return known_.front().decoders.Dispatcher();
}

LivePicture LiveDecoders::Decode(const LiveOrder& order, const Track& track,
                                 Player::ISample& sample) {
  using State = LivePicture::State;
  Player::DecodeOrder decode;
  decode.toDecode_ = &sample;
  decode.orderTp_ = track.TimeOf(order.key.sample);
  decode.decodeTopField_ = !order.bottom;
  decode.isInterlace_ = track.interlaced;
  decode.fieldSampleRate_ = track.FieldRate();
  decode.width_ = order.size.width;
  decode.height_ = order.size.height;
  LivePicture picture;
  const Clock::time_point start = Clock::now();
  const CapturedWarnings warnings;
  try {
    Player::ISampleDecoder& decoders = DecodersFor(track, order.size);
    picture.image = ImageOf(std::unique_ptr<Player::ISample>(decoders.Decode(decode)));
    picture.reason = warnings.First();
    picture.state = !picture.image           ? State::Missing
                    : picture.reason.empty() ? State::Shown
                                             : State::Damaged;
  } catch (const std::exception& error) {
    picture.state = State::Broken;
    picture.reason = error.what();
  }
  picture.decoding = Clock::now() - start;
  return picture;
}

}  // namespace Moravel::Play
