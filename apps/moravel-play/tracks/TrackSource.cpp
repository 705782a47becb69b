#include "tracks/TrackSource.h"

#include <stdexcept>

#include "Player/QELPreloader.h"
#include "elements/storage/TrackInfo.h"
#include "qel/WorkflowStepImplementation.h"

namespace Moravel::Play {

void TrackSource::Select(const Player::TrackId& id) {
  if (!media_) {
    qel::MediaSourcePtr media;
    qel::SourceControlPtr control;
    Player::QELPreloader::InitSource(media, control, id);
    media_ = media;
    control_ = control;
    return;
  }
  const auto config = qel::CreateParametersCollectionInstance(qel::GetUpdateConfigPrototype(
      qel::ElementFactoryType_Source, "qel.StorageSource", "storage"));
  config->SetParamInt64("track_id", id.Id());
  control_->UpdateConfig(config);
}

Track DescribeTrack(const NamedTrack& named, const qel::InfoContainerConstPtr& output) {
  const qel::VideoInfoList infos = output ? output->GetVideoInfoList() : qel::VideoInfoList();
  if (infos.empty())
    throw std::runtime_error("the track has no video");
  const qel::IVideoInfo& info = *infos.front();
  const qel::EditRate& rate = info.GetEditRate();
  if (rate._numerator == 0 || rate._denominator == 0 || info.GetSampleCount() <= 0)
    throw std::runtime_error("the track has no pictures, or no picture rate");

  Track track;
  track.index = named.index;
  track.name = named.name;
  track.id = named.id;
  track.ownSize = {info.GetWidth(), info.GetHeight()};
  track.interlaced = infos.size() == 2;
  track.sampleCount = info.GetSampleCount();
  track.sampleRate = Player::SampleRate(rate._numerator, rate._denominator);
  if (const auto stored = std::dynamic_pointer_cast<const qel::TrackInfo>(infos.front()))
    track.stored = stored->Index();
  if (track.stored)
    track.problems = track.stored->Facts().problems;
  track.bottomFirst =
      track.stored && track.stored->Facts().fieldOrder == qel::FieldOrder::BottomFirst;
  return track;
}

}  // namespace Moravel::Play
