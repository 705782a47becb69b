#include "elements/storage/StorageSource.h"

#include <algorithm>
#include <string>
#include <utility>

#include "elements/storage/JpegFields.h"
#include "elements/storage/TrackInfo.h"
#include "qel/WorkflowStepImplementation.h"
#include "qelCore/ParameterPrototype.h"
#include "qelCore/Registry.h"
#include "qelCore/SampleFactory.h"

namespace qel {

namespace {

constexpr int64_t kConnectTimeoutMs = 2000;
constexpr int64_t kStallTimeoutMs = 5000;
constexpr int64_t kAnswerTimeoutMs = 10'000;
constexpr int64_t kOpenTimeoutMs = 30'000;
constexpr int64_t kLeastRate = 16 << 10;
constexpr int64_t kRateWindowMs = 10'000;
constexpr int64_t kMaxBeginningBytes = 4 << 20;
constexpr int64_t kMaxTimeoutMs = 3'600'000;
constexpr int64_t kMaxLeastRate = 1'000'000'000;
// Free memory of samples that is kept.
constexpr size_t kMaxIdleBytes = size_t{1} << 20;

int64_t Number(const IParametersCollectionInstance& config, const std::string& key,
               int64_t defaultValue, int64_t least, int64_t most) {
  const int64_t value = config.GetParamInt64(key).value_or(defaultValue);
  if (value < least || value > most) {
    throw QELRuntimeError(
        QEL_TEXT("\"" << key << "\" " << value << " is not from " << least << " to " << most));
  }
  return value;
}

HttpLimits Limits(const IParametersCollectionInstance& config) {
  const auto timeout = [&config](const std::string& key, int64_t defaultMs) {
    return std::chrono::milliseconds(Number(config, key, defaultMs, 1, kMaxTimeoutMs));
  };
  return {timeout("connect_timeout_ms", kConnectTimeoutMs),
          timeout("stall_timeout_ms", kStallTimeoutMs),
          timeout("answer_timeout_ms", kAnswerTimeoutMs),
          timeout("open_timeout_ms", kOpenTimeoutMs),
          Number(config, "least_rate", kLeastRate, 0, kMaxLeastRate),
          timeout("rate_window_ms", kRateWindowMs)};
}

InfoList MakeInfos(const std::shared_ptr<const TrackIndex>& index) {
  const auto info = [&index](std::string stream) {
    return std::make_shared<TrackInfo>(std::move(stream), index);
  };
  if (index->Facts().fieldOrder == FieldOrder::Progressive)
    return {info("video")};
  return {info("video.top"), info("video.bottom")};
}

// A picture's own mark goes before what is known of the track.
bool IsBottomFirst(std::span<const uint8_t> sample, const TrackFacts& track) {
  const auto facts = ReadJpegFacts(sample);
  if (facts && facts->polarity != FieldPolarity::Frame)
    return facts->polarity == FieldPolarity::Even;
  return track.isBottomStoredFirst;
}

struct Fields {
  std::span<const uint8_t> first;   // as they are stored
  std::span<const uint8_t> second;  // may be empty
};

Fields SplitFields(std::span<const uint8_t> payload, const TrackIndex::Sample& sample) {
  if (sample.secondField != 0) {
    return {payload.first(static_cast<size_t>(sample.chunkSize)),
            payload.subspan(static_cast<size_t>(sample.secondField))};
  }
  const size_t split = FindSecondPicture(payload).value_or(payload.size());
  return {payload.first(split), payload.subspan(split)};
}

BufferConstPtr View(const SampleBytes& bytes, std::span<const uint8_t> part) {
  return std::make_shared<BufferView>(bytes.memory, part.data(),
                                      static_cast<uint32_t>(part.size()));
}

}  // namespace

StorageSource::StorageSource()
    : pool_(std::make_shared<MemoryPool>(kMaxIdleBytes)),
      top_(CreateChannelInfo(0)),
      bottom_(CreateChannelInfo(1)),
      positionTime_(EditRate(1, 1), 0, nullptr) {}

void StorageSource::SetInitConfig(ParametersCollectionInstanceConstPtr config) {
  if (!config)
    throw QELRuntimeError("the storage source needs an initial configuration, and got none");
  StorageAddress address(config->GetParamUTF8String("tcp_address").value_or(""),
                         config->GetParamInt64("tcp_port").value_or(0),
                         config->GetParamUTF8String("unix_domain_socket").value_or(""));
  auto client = std::make_unique<HttpClient>(std::move(address), Limits(*config));
  const int64_t beginning = Number(*config, "beginning_bytes", 0, 0, kMaxBeginningBytes);
  selected_.reset();
  tracks_.clear();
  client_ = std::move(client);
  beginningBytes_ = beginning;
  if (const auto trackId = config->GetParamInt64("track_id"))
    SelectTrack(*trackId);
}

void StorageSource::UpdateConfig(ParametersCollectionInstanceConstPtr config) {
  if (!config)
    throw QELRuntimeError("the storage source needs an update configuration, and got none");
  if (const auto trackId = config->GetParamInt64("remove_track"))
    ForgetTrack(*trackId);
  if (const auto trackId = config->GetParamInt64("track_id"))
    SelectTrack(*trackId);
}

void StorageSource::SelectTrack(int64_t trackId) {
  if (selected_ == trackId)
    return;
  selected_.reset();
  if (!client_)
    throw QELRuntimeError(
        QEL_TEXT("track T" << trackId << ": the storage source has no initial configuration yet"));
  if (!tracks_.contains(trackId)) {
    if (tracks_.size() >= kMaxOpenTracks) {
      throw QELRuntimeError(QEL_TEXT("track " << client_->Address().TrackName(trackId) << ": "
                                              << kMaxOpenTracks
                                              << " tracks are open, which is the most; "
                                                 "\"remove_track\" forgets one"));
    }
    OpenTrack open;
    open.track = std::make_unique<StorageTrack>(*client_, pool_, trackId, beginningBytes_);
    CheckIndexMemory(*open.track);
    MakeRoom(*open.track);  // for what it holds of its beginning
    open.infos = MakeInfos(open.track->Index());
    tracks_.emplace(trackId, std::move(open));
  }
  selected_ = trackId;
  position_ = 0;
  positionTime_ = MediaTime(EditRate(1, 1), 0, nullptr);
  isInside_ = true;
}

void StorageSource::CheckIndexMemory(const StorageTrack& added) const {
  int64_t bytes = added.Index()->MemoryBytes();
  for (const auto& [id, open] : tracks_)
    bytes += open.track.get() == &added ? 0 : open.track->Index()->MemoryBytes();
  if (bytes > kMaxIndexMemory) {
    throw QELRuntimeError(QEL_TEXT(added.Name()
                                   << ": the indexes of the open tracks take " << bytes
                                   << " bytes with its own, at most " << kMaxIndexMemory
                                   << " are kept; \"remove_track\" forgets one"));
  }
}

void StorageSource::ForgetTrack(int64_t trackId) {
  tracks_.erase(trackId);
  if (selected_ == trackId)
    selected_.reset();
}

StorageSource::OpenTrack& StorageSource::Selected() {
  if (!selected_)
    throw QELRuntimeError("no track is selected: set \"track_id\" to one that can be opened");
  return tracks_.at(*selected_);
}

InfoContainerConstPtr StorageSource::GetDefinedOutput(std::string) {
  return selected_ ? CreateInfoContainer(Selected().infos) : nullptr;
}

MediaTime StorageSource::GotoTimeOffset(const MediaTime& time, std::string) {
  const TrackIndex& index = *Selected().track->Index();
  const auto found = index.Find(time);
  isInside_ = found.has_value();
  positionTime_ = time;
  if (!found)
    return time;
  position_ = *found;
  return MediaTime(index.Facts().timeRate, index.Start(position_), time.GetClockInfo());
}

SampleContainerConstPtr StorageSource::GetSample() {
  OpenTrack& open = Selected();
  if (!isInside_ || position_ >= open.track->Index()->Count())
    return nullptr;
  const auto bytes = ReadSample(open);
  SampleContainerConstPtr container = bytes ? MakeContainer(open, *bytes) : nullptr;
  const TrackIndex& index = *open.track->Index();
  if (isInside_)
    positionTime_ = MediaTime(index.Facts().timeRate, index.Start(++position_), nullptr);
  return container;
}

std::optional<SampleBytes> StorageSource::ReadSample(OpenTrack& open) {
  try {
    return open.track->Read(position_, MakeRoom(*open.track));
  } catch (const FileChangedError&) {
    ReopenSelected(open);
  }
  if (!isInside_)
    return std::nullopt;
  try {
    return open.track->Read(position_, MakeRoom(*open.track));
  } catch (const FileChangedError&) {
    ForgetTrack(*selected_);
    throw;
  }
}

void StorageSource::ReopenSelected(OpenTrack& open) {
  try {
    open.track->Reopen();
    CheckIndexMemory(*open.track);
  } catch (...) {
    ForgetTrack(*selected_);  // its index and its file do not belong together
    throw;
  }
  open.infos = MakeInfos(open.track->Index());
  const auto found = open.track->Index()->Find(positionTime_);
  isInside_ = found.has_value();
  position_ = found.value_or(0);
}

// Tracks that are read in turns, those that were read since this one was, share alike. The one that
// was read longest ago gives up what it has when too little is left for this one.
ReadAheadShare StorageSource::MakeRoom(const StorageTrack& reading) {
  while (true) {
    StorageTrack* oldest = nullptr;
    int tracks = 1;
    int64_t bytes = 0;
    int transfers = 0;
    for (const auto& [id, open] : tracks_) {
      StorageTrack* const track = open.track.get();
      if (track == &reading)
        continue;
      if (track->LastRead() > reading.LastRead())
        ++tracks;
      if (track->Bytes() == 0)
        continue;
      bytes += track->Bytes();
      transfers += track->Transfers();
      if (oldest == nullptr || track->LastRead() < oldest->LastRead())
        oldest = track;
    }
    const ReadAheadShare share{kMaxReadAheadBytes / tracks,
                               std::clamp(kMaxTransfers / tracks, 1, kMaxReadAheadTransfers)};
    const ReadAheadShare left{kMaxReadAheadBytes - bytes, kMaxTransfers - transfers};
    if (oldest == nullptr || (left.bytes >= std::min(share.bytes, kMaxReadAheadBytes / 4) &&
                              left.transfers >= share.transfers))
      return {std::min(share.bytes, left.bytes), share.transfers};
    oldest->StopReadingAhead();
  }
}

SampleContainerConstPtr StorageSource::MakeContainer(const OpenTrack& open,
                                                     const SampleBytes& bytes) const {
  const TrackIndex& index = *open.track->Index();
  const TimeLimits limits(MediaTime(index.Facts().timeRate, index.Start(position_), nullptr),
                          index.Duration(position_));
  SampleList samples;
  if (index.Facts().fieldOrder == FieldOrder::Progressive) {
    samples = {CreateSample(open.infos[0], top_, View(bytes, bytes.payload))};
  } else {
    const bool bottomFirst = IsBottomFirst(bytes.payload, index.Facts());
    const Fields fields = SplitFields(bytes.payload, index.At(position_));
    samples.push_back(CreateSample(open.infos[bottomFirst ? 1 : 0], bottomFirst ? bottom_ : top_,
                                   View(bytes, fields.first)));
    if (!fields.second.empty()) {
      samples.push_back(CreateSample(open.infos[bottomFirst ? 0 : 1], bottomFirst ? top_ : bottom_,
                                     View(bytes, fields.second)));
    }
  }
  return CreateSampleContainer(std::move(samples), {{"StorageTimePoint", limits}});
}

void RegisterStorageSource(int64_t beginningBytes) {
  using Prototype = ParametersCollectionPrototype;
  using enum Prototype::Type;
  ElementRegistration registration;
  registration.factory = std::make_shared<ElementFactory<ElementFactoryType_Source>>(
      [](const auto&) { return std::make_shared<StorageSource>(); });
  registration.manifest = std::make_shared<Prototype>(Prototype::ParameterMap{})->CreateInstance();
  registration.initConfig = std::make_shared<Prototype>(
      Prototype::ParameterMap{{"tcp_address", {UTF8String}},
                              {"unix_domain_socket", {UTF8String, std::string()}},
                              {"tcp_port", {Int64}},
                              {"track_id", {Int64}},
                              {"beginning_bytes", {Int64, beginningBytes}},
                              {"connect_timeout_ms", {Int64, kConnectTimeoutMs}},
                              {"stall_timeout_ms", {Int64, kStallTimeoutMs}},
                              {"answer_timeout_ms", {Int64, kAnswerTimeoutMs}},
                              {"open_timeout_ms", {Int64, kOpenTimeoutMs}},
                              {"least_rate", {Int64, kLeastRate}},
                              {"rate_window_ms", {Int64, kRateWindowMs}}});
  registration.updateConfig = std::make_shared<Prototype>(
      Prototype::ParameterMap{{"track_id", {Int64}}, {"remove_track", {Int64}}});
  RegisterElement("qel.StorageSource", "storage", std::move(registration));
}

}  // namespace qel
