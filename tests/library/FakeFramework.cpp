#include "FakeFramework.h"

#include <atomic>
#include <map>
#include <utility>

#include "logging/LoggingManager.h"
#include "qel/Milestone.h"
#include "qel/Parameters.h"
#include "qelCore/Infos.h"

namespace fake {

namespace {

std::atomic<Framework*> current = nullptr;

// Notes the call; whether it has an answer.
bool Has(const std::string& call, qel::ElementFactoryType kind, const std::string& implementation,
         const std::string& type) {
  Note(call + " " + std::to_string(kind) + " " + implementation + " " + type);
  return Framework::Current().missing_ != call;
}

struct Parameters : qel::IParametersCollectionInstance {
  void SetParamInt64(const std::string& key, int64_t value) override {
    Set(key, std::to_string(value));
  }
  void SetParamUTF8String(const std::string& key, std::string value) override {
    Set(key, "\"" + value + "\"");
  }
  void SetParamFourCC(const std::string& key, qel::FourCC value) override {
    Set(key, std::to_string(value));
  }
  std::optional<int64_t> GetParamInt64(const std::string&) const override { return {}; }
  std::optional<std::string> GetParamUTF8String(const std::string&) const override { return {}; }
  std::optional<qel::FourCC> GetParamFourCC(const std::string&) const override { return {}; }

  void Set(const std::string& key, const std::string& value) {
    Note("Set " + key + "=" + value);
    values_[key] = value;
  }

  std::map<std::string, std::string> values_;
};

struct Prototype : qel::IParametersCollectionPrototype {
  qel::ParametersCollectionInstancePtr CreateInstance() const override {
    return std::make_shared<Parameters>();
  }
};

struct Buffer : qel::IBuffer {
  Buffer(uint32_t dataSize, std::string bytes) : dataSize_(dataSize), bytes_(std::move(bytes)) {}
  const uint8_t* GetInnerBuffer() const override {
    return reinterpret_cast<const uint8_t*>(bytes_.data());
  }
  uint32_t GetInnerBufferSize() const override { return static_cast<uint32_t>(bytes_.size()); }
  uint32_t GetDataSize() const override { return dataSize_; }

  const uint32_t dataSize_;
  const std::string bytes_;
};

struct Channels : qel::IChannelInfo {
  explicit Channels(std::vector<int> channels) : channels_(std::move(channels)) {}
  const qel::ChannelsList& GetChannels() const override { return channels_; }

  const qel::ChannelsList channels_;
};

template <typename Interface>
struct Sample : Interface {
  Sample(std::string streamId, std::vector<int> channels, qel::BufferConstPtr buffer)
      : streamId_(std::move(streamId)),
        channels_(std::make_shared<Channels>(std::move(channels))),
        buffer_(std::move(buffer)) {}
  const std::string& GetStreamId() const override { return streamId_; }
  qel::BufferConstPtr GetData() const override { return buffer_; }
  qel::ChannelInfoConstPtr GetChannelInfo() const override { return channels_; }
  qel::InfoConstPtr GetInfo() const override { return nullptr; }

  const std::string streamId_;
  const qel::ChannelInfoConstPtr channels_;
  const qel::BufferConstPtr buffer_;
};

struct Picture : Sample<qel::IVideoSample> {
  using Sample::Sample;
  int GetWidth() const override { return 0; }
  int GetHeight() const override { return 0; }
  qel::FourCC GetFourCC() const override { return qel::FourCC_I420; }
};

// Those of the list that are of the narrower kind.
template <typename Narrow, typename Wide>
std::vector<std::shared_ptr<const Narrow>> Only(
    const std::vector<std::shared_ptr<const Wide>>& list) {
  std::vector<std::shared_ptr<const Narrow>> narrow;
  for (const auto& wide : list) {
    if (auto found = std::dynamic_pointer_cast<const Narrow>(wide))
      narrow.push_back(std::move(found));
  }
  return narrow;
}

struct Container : qel::ISampleContainer {
  Container(qel::SampleList samples, std::optional<qel::TimeLimits> limits)
      : samples_(std::move(samples)), limits_(std::move(limits)) {}
  qel::SampleList GetAllSamples() const override {
    Note("GetAllSamples");
    return samples_;
  }
  qel::VideoSampleList GetVideoSampleList(qel::VideoParametersConstPtr,
                                          qel::VideoParametersConstPtr) const override {
    Note("GetVideoSampleList");
    return Only<qel::IVideoSample>(samples_);
  }
  const qel::TimeLimits& GetTimeInfo(std::string name) const override {
    Note("GetTimeInfo " + name);
    return limits_.value();
  }

  const qel::SampleList samples_;
  const std::optional<qel::TimeLimits> limits_;
};

struct SoundInfo : qel::IInfo {
  explicit SoundInfo(std::string streamId) : streamId_(std::move(streamId)) {}
  const std::string& GetStreamId() const override { return streamId_; }

  const std::string streamId_;
};

struct Infos : qel::IInfoContainer {
  explicit Infos(qel::InfoList infos) : infos_(std::move(infos)) {}
  qel::InfoList GetInfoList() const override {
    Note("GetInfoList");
    return infos_;
  }
  qel::VideoInfoList GetVideoInfoList() const override {
    Note("GetVideoInfoList");
    return Only<qel::IVideoInfo>(infos_);
  }

  const qel::InfoList infos_;
};

struct InfoMap : qel::IStreamIdToInfoMap {
  void AddInfo(std::string streamId, qel::InfoConstPtr info) override {
    Note("AddInfo " + streamId + "->" + info->GetStreamId());
    infos_[streamId] = std::move(info);
  }
  qel::InfoConstPtr GetInfo(const std::string& streamId) const override {
    return infos_.at(streamId);
  }

  std::map<std::string, qel::InfoConstPtr> infos_;
};

void LogFramework(LogLine line) {
  Framework::Current().Log(Framework::Current().frameworkLog_, std::move(line));
}

struct Milestone : qel::IMilestone {
  ~Milestone() override { LogFramework({-1, "end of milestone", ""}); }
};

struct Writer : qel::ILoggerWriter {
  void WriteLog(qel::LogLevel level, const char* message, const char* context, const char* file,
                const char* line, const char* reserved, const char* threadId,
                const char* time) override {
    const std::string rest = std::string(context) + reserved + threadId + time;
    const bool complete = std::stoi(line) > 0 && rest == "context,thread,time";
    LogFramework({level, complete ? message : "incomplete line", file});
  }
};

struct Logger : orl::mv::logging::ILogger {
  Level GetLevel() const override {
    Note("GetLevel");
    return Framework::Current().level_;
  }
  void Log(Level level, const std::string& text, const char* file, size_t line) const override {
    Note("Log");
    Framework::Current().Log(Framework::Current().hostLog_,
                             {level, text, line > 0 ? file : "no line"});
  }
};

Logger logger;

template <typename Instance, typename Element>
Instance Wrap(const std::shared_ptr<Element>& element) {
  Note("CreateWrapper");
  const bool missing = Framework::Current().missing_ == "CreateWrapper";
  return missing ? Instance() : Instance(element, element, element);
}

}  // namespace

Framework::Framework() : writer_(std::make_shared<Writer>()) {
  current = this;
}

Framework& Framework::Current() {
  return *current;
}

void Framework::Note(const std::string& call) {
  const std::lock_guard<std::mutex> lock(access_);
  calls_.push_back(call);
  if (callCount_++ == failAt_)
    failure_(call);
}

std::vector<std::string> Framework::TakeCalls() {
  const std::lock_guard<std::mutex> lock(access_);
  callCount_ = 0;
  std::erase(calls_, "GetLevel");
  return std::exchange(calls_, {});
}

void Framework::Log(Lines& log, LogLine line) {
  const std::lock_guard<std::mutex> lock(access_);
  log.push_back(std::move(line));
}

void Note(const std::string& call) {
  Framework::Current().Note(call);
}

std::string Text(const qel::ParametersCollectionInstanceConstPtr& config) {
  std::string text;
  for (const auto& [key, value] : dynamic_cast<const Parameters&>(*config).values_)
    text += " " + key + "=" + value;
  return text;
}

qel::BufferConstPtr MakeBuffer(uint32_t dataSize, std::string bytes) {
  return std::make_shared<Buffer>(dataSize, std::move(bytes));
}

qel::SampleConstPtr MakeSample(const std::string& streamId, std::vector<int> channels,
                               qel::BufferConstPtr buffer) {
  return std::make_shared<Sample<qel::ISample>>(streamId, std::move(channels), std::move(buffer));
}

qel::SampleConstPtr MakePicture() {
  return std::make_shared<Picture>("decoded", std::vector<int>(), MakeBuffer(1));
}

qel::SampleContainerConstPtr MakeContainer(qel::SampleList samples,
                                           std::optional<qel::TimeLimits> limits) {
  return std::make_shared<Container>(std::move(samples), std::move(limits));
}

qel::InfoConstPtr MakeVideoInfo(const std::string& streamId) {
  return std::make_shared<qel::VideoInfo>(streamId, 0, 0, 0, qel::EditRate(25, 1));
}

qel::InfoConstPtr MakeSoundInfo(const std::string& streamId) {
  return std::make_shared<SoundInfo>(streamId);
}

qel::InfoContainerConstPtr MakeInfoContainer(qel::InfoList infos) {
  return std::make_shared<Infos>(std::move(infos));
}

qel::MediaTime Source::GotoTimeOffset(const qel::MediaTime& time, std::string stream) {
  const auto& [numerator, denominator] = time.GetEditRate();
  Note("GotoTimeOffset " + std::to_string(time.GetTimeNumber()) + "@" + std::to_string(numerator) +
       "/" + std::to_string(denominator) + " " + stream + (time.GetClockInfo() ? " clock" : ""));
  return time;
}

void Decoder::PushSample(qel::SampleContainerConstPtr container) {
  const qel::SampleConstPtr sample = container->GetAllSamples().front();
  Note("PushSample " + sample->GetStreamId());
  onPush_(*sample);
  pending_ = outputs_;
}

qel::SampleContainerConstPtr Decoder::GetSample() {
  Note("GetSample");
  if (pending_.empty())
    return nullptr;
  const qel::SampleContainerConstPtr next = pending_.front();
  pending_.erase(pending_.begin());
  return next;
}

}  // namespace fake

// What the libraries would bring.

namespace qel {

using fake::Framework;
using fake::Has;
using fake::Note;

std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter() {
  return Framework::Current().writer_;
}
std::string GetCurrentTimeString() {
  return "time";
}
std::string GetThreadId() {
  return ",thread,";
}
std::string GetCurrentContextString() {
  return "context";
}
std::string ToString(int value) {
  return std::to_string(value);
}
std::string ToString(LogLevel level) {
  return "L" + std::to_string(level);
}

std::string GetLabel(ElementFactoryType kind) {
  return "label" + std::to_string(kind);
}

MilestonePtr CreateMilestone(std::string description) {
  Note("CreateMilestone " + description);
  return std::make_unique<fake::Milestone>();
}

std::shared_ptr<IElementFactory> GetFactory(ElementFactoryType kind, const std::string& name,
                                            const std::string& type) {
  return Has("GetFactory", kind, name, type) ? Framework::Current().factory_ : nullptr;
}

std::shared_ptr<const IParametersCollectionInstance> GetManifest(ElementFactoryType kind,
                                                                 const std::string& name,
                                                                 const std::string& type) {
  return Has("GetManifest", kind, name, type) ? std::make_shared<fake::Parameters>() : nullptr;
}

ParametersCollectionPrototypeConstPtr GetInitConfigPrototype(ElementFactoryType kind,
                                                             const std::string& name,
                                                             const std::string& type) {
  return Has("GetInitConfigPrototype", kind, name, type) ? std::make_shared<fake::Prototype>()
                                                         : nullptr;
}

ParametersCollectionPrototypeConstPtr GetUpdateConfigPrototype(ElementFactoryType kind,
                                                               const std::string& name,
                                                               const std::string& type) {
  return Has("GetUpdateConfigPrototype", kind, name, type) ? std::make_shared<fake::Prototype>()
                                                           : nullptr;
}

ParametersCollectionInstancePtr CreateParametersCollectionInstance(
    ParametersCollectionPrototypeConstPtr prototype) {
  Note("CreateParametersCollectionInstance");
  return prototype ? prototype->CreateInstance() : nullptr;
}

SourceInstance CreateWrapper(std::shared_ptr<ISource> element, StepConstPtr) {
  return fake::Wrap<SourceInstance>(element);
}

VideoDecoderInstance CreateWrapper(std::shared_ptr<IVideoDecoder> element, StepConstPtr) {
  return fake::Wrap<VideoDecoderInstance>(element);
}

InfoContainerConstPtr CreateInfoContainer(InfoConstPtr info, PackagingInfoConstPtr) {
  Note("CreateInfoContainer " + info->GetStreamId());
  return fake::MakeInfoContainer({std::move(info)});
}

StreamIdToInfoMapPtr CreateStreamIdToInfoMap() {
  Note("CreateStreamIdToInfoMap");
  return std::make_shared<fake::InfoMap>();
}

SampleContainerConstPtr CreateSampleContainer(SampleConstPtr sample, PackagingInfoConstPtr) {
  Note("CreateSampleContainer " + sample->GetStreamId());
  return fake::MakeContainer({std::move(sample)});
}

SampleContainerConstPtr DuplicateSampleContainer(SampleContainerConstPtr container,
                                                 StreamIdToInfoMapConstPtr map) {
  Note("DuplicateSampleContainer");
  const SampleConstPtr sample = container->GetAllSamples().front();
  const std::string streamId = map->GetInfo(sample->GetStreamId())->GetStreamId();
  return fake::MakeContainer(
      {fake::MakeSample(streamId, sample->GetChannelInfo()->GetChannels(), sample->GetData())});
}

}  // namespace qel

namespace orl::mv::logging {

ILogger& LoggingManager::GetLogger(const std::string&) {
  return fake::logger;
}

ILogger* LoggingManager::GetLoggerPtr(const std::string&) {
  return fake::Framework::Current().hasLogger_ ? &fake::logger : nullptr;
}

}  // namespace orl::mv::logging
