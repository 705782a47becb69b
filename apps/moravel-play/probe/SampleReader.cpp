#include "probe/SampleReader.h"

#include "qel/WorkflowStepImplementation.h"

namespace Moravel::Play {

qel::SampleContainerConstPtr ReadSample(const TrackSource& source, const qel::TrackIndex& index,
                                        int64_t number) {
  const qel::MediaTime time(index.Facts().timeRate, index.Start(number), nullptr);
  source.Control()->GotoTimeOffset(time, "");
  return source.Media()->GetSample();
}

void Forget(const TrackSource& source, const Player::TrackId& id) {
  const auto config = qel::CreateParametersCollectionInstance(qel::GetUpdateConfigPrototype(
      qel::ElementFactoryType_Source, "qel.StorageSource", "storage"));
  config->SetParamInt64("remove_track", id.Id());
  source.Control()->UpdateConfig(config);
}

}  // namespace Moravel::Play
