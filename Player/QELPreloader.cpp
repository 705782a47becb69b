#include "Player/QELPreloader.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <tuple>

#include "Player/HostLog.h"
#include "Player/QELSample.h"
#include "logging/LoggingManager.h"
#include "qel/WorkflowStepImplementation.h"

namespace Moravel::Player {

namespace {

using orl::mv::logging::ILogger;

constexpr const char* kSourceImplementation = "qel.StorageSource";
constexpr const char* kSourceType = "storage";

// Objects are named in log lines by their address as a signed decimal number.
int64_t Identity(const void* object) {
  return reinterpret_cast<intptr_t>(object);
}

qel::ParametersCollectionInstancePtr CreateUpdateConfig() {
  return qel::CreateParametersCollectionInstance(qel::GetUpdateConfigPrototype(
      qel::ElementFactoryType_Source, kSourceImplementation, kSourceType));
}

// A read is as good as its first sample.
bool HasData(const qel::SampleContainerConstPtr& container) {
  if (!container)
    return false;
  const qel::SampleList samples = container->GetAllSamples();
  if (samples.empty() || !samples.front())
    return false;
  const qel::BufferConstPtr buffer = samples.front()->GetData();
  return buffer && buffer->GetDataSize() != 0;
}

std::unique_ptr<QELSample> MakeSample(const qel::SampleContainerConstPtr& container) {
  auto sample = std::make_unique<QELSample>();
  sample->SetContainer(container);
  sample->SetTimePointAndDurationFromTimeLimits(container->GetTimeInfo("StorageTimePoint"));
  return sample;
}

}  // namespace

QELPreloader::QELPreloader()
    : queues_(nullptr), logger_(orl::mv::logging::LoggingManager::GetLoggerPtr("QELPreloader")) {
  updateConfigInstance_ = CreateUpdateConfig();
}

QELPreloader::~QELPreloader() = default;

IPreloader::PreloadResult QELPreloader::Preload(const PreloadOrder& order) {
  const std::lock_guard<std::mutex> lock(sourcesAccess_);
  if (order.queue_ == nullptr) {
    PLAYER_LOG(logger_, ILogger::Level_Error,
               Identity(this) << ": received an order with empty queue");
    return PreloadResult::ERROR;
  }
  ExistingCacheUpdateQueues* const queues = queues_;
  if (queues != nullptr && !queues->Exists(order.queue_)) {
    PLAYER_LOG(logger_, ILogger::Level_Debug,
               "It appears the queue is not valid anymore: we don't process the order on "
                   << order.id_.ToString() << " at " << order.tp_);
    return PreloadResult::ERROR;
  }
  const auto entry = sources_.find(order.id_.StorageId());
  if (entry == sources_.end()) {
    PLAYER_LOG(logger_, ILogger::Level_Error,
               Identity(this) << ": does not have a source set to read on storage "
                              << order.id_.StorageId().ToString());
    return PreloadResult::ERROR;
  }
  const Source& source = entry->second;
  if (!SelectTrack(source, order.id_))
    return PreloadResult::ERROR;

  Output output;
  output.tp_ = order.tp_;
  Seek(source, order);
  const qel::SampleContainerConstPtr container = source.first->GetSample();
  std::unique_ptr<QELSample> sample;
  if (HasData(container)) {
    sample = MakeSample(container);
  } else {
    PLAYER_LOG(logger_, ILogger::Level_Trace, "Invalid sample at " << order.tp_);
  }
  const auto result = sample ? PreloadResult::SUCCESS_EXIST : PreloadResult::SUCCESS_MISSING;
  output.sample_ = sample.get();
  if (Deliver(output, order.queue_, queues))
    static_cast<void>(sample.release());  // the queue owns it from here
  return result;
}

bool QELPreloader::SelectTrack(const Source& source, const TrackId& trackId) {
  if (!updateConfigInstance_) {
    PLAYER_LOG(logger_, ILogger::Level_Error,
               "Preload: UpdateConfig error: the framework has no update configuration for "
                   << kSourceImplementation);
    return false;
  }
  updateConfigInstance_->SetParamInt64("track_id", trackId.Id());
  try {
    source.second->UpdateConfig(updateConfigInstance_);
  } catch (const std::runtime_error& error) {
    PLAYER_LOG(logger_, ILogger::Level_Error, "Preload: UpdateConfig error: " << error.what());
    return false;
  }
  return true;
}

void QELPreloader::Seek(const Source& source, const PreloadOrder& order) {
  const int64_t multiple = order.tp_.SampleNumber(order.s_);
  const qel::EditRate editRate(static_cast<uint32_t>(order.s_.Numerator()),
                               static_cast<uint32_t>(order.s_.Denominator()));
  const qel::MediaTime mediaTime(editRate, multiple, qel::ClockInfoPtr());
  PLAYER_LOG(logger_, ILogger::Level_Trace,
             Identity(this) << ": GetSample at mediaTime: " << multiple << " x ("
                            << editRate._numerator << ", " << editRate._denominator
                            << "), obtained from tp " << order.tp_);
  source.second->GotoTimeOffset(mediaTime, "source");
}

bool QELPreloader::Deliver(const Output& output, CacheUpdateQueue* queue,
                           ExistingCacheUpdateQueues* queues) {
  if (queues == nullptr) {
    queue->Push(output);
    return true;
  }
  if (queues->PushIfExists(queue, output))
    return true;
  PLAYER_LOG(logger_, ILogger::Level_Debug,
             "CacheUpdateQueue " << Identity(queue) << " does not exist: we don't push the output");
  return false;
}

void QELPreloader::SetExistingCacheUpdateQueues(ExistingCacheUpdateQueues* queues) {
  queues_ = queues;
}

void QELPreloader::SetStorageSource(StorageId id, qel::MediaSourcePtr source,
                                    qel::SourceControlPtr control) {
  qel::CheckPointer(source, "source");
  qel::CheckPointer(control, "control");
  const std::lock_guard<std::mutex> lock(sourcesAccess_);
  sources_.try_emplace(std::move(id), std::move(source), std::move(control));
}

bool QELPreloader::RemoveStorageSource(const StorageId& id) {
  // Dies after the lock: with the last handle of an element goes the element, in its own time.
  decltype(sources_)::node_type removed;
  const std::lock_guard<std::mutex> lock(sourcesAccess_);
  removed = sources_.extract(id);
  return !removed.empty();
}

void QELPreloader::InitSource(qel::MediaSourcePtr& source, qel::SourceControlPtr& control,
                              const TrackId& trackId) {
  const auto prototype = qel::GetInitConfigPrototype(qel::ElementFactoryType_Source,
                                                     kSourceImplementation, kSourceType);
  qel::CheckPointer(prototype, "GetInitConfigPrototype failed (StorageSource)");
  const auto config = qel::CreateParametersCollectionInstance(prototype);
  config->SetParamUTF8String("tcp_address", trackId.StorageId().Address());
  config->SetParamUTF8String("unix_domain_socket", "");
  config->SetParamInt64("tcp_port", trackId.StorageId().Port());
  config->SetParamInt64("track_id", trackId.Id());

  const auto [mediaSource, sourceControl, asynchronousControl] =
      qel::ImplementElement<qel::ElementFactoryType_Source>(kSourceImplementation, kSourceType,
                                                            qel::StepConstPtr());
  qel::CheckPointer(mediaSource, "mediaSource");
  qel::CheckPointer(sourceControl, "sourceControl");
  source = mediaSource;
  control = sourceControl;
  source->SetInitConfig(config);
}

void QELPreloader::RemoveTrackId(const TrackId& trackId) {
  const std::lock_guard<std::mutex> lock(sourcesAccess_);
  const auto entry = sources_.find(trackId.StorageId());
  if (entry == sources_.end())
    return;
  const auto prototype = qel::GetUpdateConfigPrototype(qel::ElementFactoryType_Source,
                                                       kSourceImplementation, kSourceType);
  qel::CheckPointer(prototype, "GetUpdateConfigPrototype failed (StorageSource)");
  const auto config = qel::CreateParametersCollectionInstance(prototype);
  config->SetParamInt64("remove_track", trackId.Id());
  entry->second.second->UpdateConfig(config);
}

}  // namespace Moravel::Player
