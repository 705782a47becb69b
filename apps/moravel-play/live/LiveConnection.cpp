#include "live/LiveConnection.h"

#include <utility>

#include "Player/QELSample.h"
#include "elements/StopScope.h"

namespace Moravel::Play {

namespace {

int64_t DataBytes(const Player::ISample& sample) {
  int64_t bytes = 0;
  if (const auto* const qelSample = dynamic_cast<const Player::QELSample*>(&sample)) {
    for (const qel::SampleConstPtr& part : qelSample->GetContainer()->GetAllSamples())
      bytes += part && part->GetData() ? part->GetData()->GetDataSize() : 0;
  }
  return bytes;
}

}  // namespace

LiveConnection::LiveConnection() = default;

void LiveConnection::Open(const Player::TrackId& id, std::stop_token stop) {
  const qel::StopScope scope(std::move(stop));
  source_.Select(id);
  if (!std::exchange(hasSource_, true))
    preloader_.SetStorageSource(id.StorageId(), source_.Media(), source_.Control());
}

LiveConnection::Result LiveConnection::Read(Player::PreloadOrder order, std::stop_token stop) {
  Result result;
  inbox_.sample.reset();
  order.queue_ = &inbox_;
  try {
    Open(order.id_, stop);  // the preloader would do it, and tell the reason to the log alone
    const qel::StopScope scope(std::move(stop));
    if (preloader_.Preload(order) == Player::IPreloader::PreloadResult::ERROR)
      result.failure = "the sample could not be ordered";
  } catch (const std::exception& error) {
    result.failure = ReasonOf(error, order.id_);
  }
  result.sample = std::move(inbox_.sample);
  result.bytes = result.sample ? DataBytes(*result.sample) : 0;
  return result;
}

}  // namespace Moravel::Play
