#include "FakeFramework.h"

#include <atomic>
#include <utility>

#include "Player/ISample.h"
#include "logging/LoggingManager.h"
#include "qel/Milestone.h"
#include "qel/Parameters.h"

namespace fake {

namespace {

std::atomic<Framework*> current = nullptr;

void Note(const std::string& call) {
  Framework::Current().Note(call);
}

std::string Name(qel::ElementFactoryType factoryType, const std::string& implementation,
                 const std::string& type) {
  return " " + std::to_string(factoryType) + " " + implementation + " " + type;
}

class Parameters : public qel::IParametersCollectionInstance {
 public:
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

  std::string Text() const {
    std::string text;
    for (const auto& [key, value] : values_)
      text += " " + key + "=" + value;
    return text;
  }

 private:
  void Set(const std::string& key, const std::string& value) {
    Note("Set " + key + "=" + value);
    values_[key] = value;
  }

  std::map<std::string, std::string> values_;
};

std::string Text(const qel::ParametersCollectionInstanceConstPtr& config) {
  return std::dynamic_pointer_cast<const Parameters>(config)->Text();
}

class Prototype : public qel::IParametersCollectionPrototype {
 public:
  qel::ParametersCollectionInstancePtr CreateInstance() const override {
    return std::make_shared<Parameters>();
  }
};

class Buffer : public qel::IBuffer {
 public:
  Buffer(uint32_t dataSize, std::string bytes) : dataSize_(dataSize), bytes_(std::move(bytes)) {}
  const uint8_t* GetInnerBuffer() const override {
    return reinterpret_cast<const uint8_t*>(bytes_.data());
  }
  uint32_t GetInnerBufferSize() const override { return static_cast<uint32_t>(bytes_.size()); }
  uint32_t GetDataSize() const override { return dataSize_; }

 private:
  const uint32_t dataSize_;
  const std::string bytes_;
};

class Channels : public qel::IChannelInfo {
 public:
  explicit Channels(std::vector<int> channels) : channels_(std::move(channels)) {}
  const qel::ChannelsList& GetChannels() const override { return channels_; }

 private:
  const qel::ChannelsList channels_;
};

struct SampleParts {
  std::string streamId;
  qel::ChannelInfoConstPtr channels;
  qel::BufferConstPtr buffer;
};

template <typename Interface>
class Sample : public Interface {
 public:
  explicit Sample(SampleParts parts) : parts_(std::move(parts)) {}
  const std::string& GetStreamId() const override { return parts_.streamId; }
  qel::BufferConstPtr GetData() const override { return parts_.buffer; }
  qel::ChannelInfoConstPtr GetChannelInfo() const override { return parts_.channels; }
  qel::InfoConstPtr GetInfo() const override { return nullptr; }

 private:
  const SampleParts parts_;
};

class Picture : public Sample<qel::IVideoSample> {
 public:
  using Sample::Sample;
  int GetWidth() const override { return 0; }
  int GetHeight() const override { return 0; }
  qel::FourCC GetFourCC() const override { return qel::FourCC_I420; }
};

class Container : public qel::ISampleContainer {
 public:
  Container(qel::SampleList samples, std::optional<qel::TimeLimits> limits)
      : samples_(std::move(samples)), limits_(std::move(limits)) {}

  qel::SampleList GetAllSamples() const override {
    Note("GetAllSamples");
    return samples_;
  }
  qel::VideoSampleList GetVideoSampleList(qel::VideoParametersConstPtr,
                                          qel::VideoParametersConstPtr) const override {
    Note("GetVideoSampleList");
    qel::VideoSampleList pictures;
    for (const qel::SampleConstPtr& sample : samples_) {
      if (auto picture = std::dynamic_pointer_cast<const qel::IVideoSample>(sample))
        pictures.push_back(picture);
    }
    return pictures;
  }
  const qel::TimeLimits& GetTimeInfo(std::string name) const override {
    Note("GetTimeInfo " + name);
    return limits_.value();
  }

 private:
  const qel::SampleList samples_;
  const std::optional<qel::TimeLimits> limits_;
};

template <typename Interface>
class Info : public Interface {
 public:
  explicit Info(std::string streamId) : streamId_(std::move(streamId)) {}
  const std::string& GetStreamId() const override { return streamId_; }

 private:
  const std::string streamId_;
};

class VideoInfo : public Info<qel::IVideoInfo> {
 public:
  using Info::Info;
  int GetWidth() const override { return 0; }
  int GetHeight() const override { return 0; }
  int64_t GetSampleCount() const override { return 0; }
  const qel::EditRate& GetEditRate() const override { return rate_; }

 private:
  const qel::EditRate rate_{25, 1};
};

class Infos : public qel::IInfoContainer {
 public:
  explicit Infos(qel::InfoList infos) : infos_(std::move(infos)) {}
  qel::InfoList GetInfoList() const override {
    Note("GetInfoList");
    return infos_;
  }
  qel::VideoInfoList GetVideoInfoList() const override {
    Note("GetVideoInfoList");
    qel::VideoInfoList videoInfos;
    for (const qel::InfoConstPtr& info : infos_) {
      if (auto videoInfo = std::dynamic_pointer_cast<const qel::IVideoInfo>(info))
        videoInfos.push_back(videoInfo);
    }
    return videoInfos;
  }

 private:
  const qel::InfoList infos_;
};

class InfoMap : public qel::IStreamIdToInfoMap {
 public:
  void AddInfo(std::string streamId, qel::InfoConstPtr info) override {
    Note("AddInfo " + streamId + "->" + info->GetStreamId());
    infos_[streamId] = std::move(info);
  }
  qel::InfoConstPtr GetInfo(const std::string& streamId) const override {
    return infos_.at(streamId);
  }

 private:
  std::map<std::string, qel::InfoConstPtr> infos_;
};

class Milestone : public qel::IMilestone {
 public:
  ~Milestone() override { Framework::Current().LogFramework({-1, "end of milestone", ""}); }
};

class Writer : public qel::ILoggerWriter {
 public:
  void WriteLog(qel::LogLevel level, const char* message, const char* context, const char* file,
                const char* line, const char* reserved, const char* threadId,
                const char* time) override {
    const bool complete = std::string(context) == "context" && std::stoi(line) > 0 &&
                          *reserved == '\0' && std::string(threadId) == "thread" &&
                          std::string(time) == "time";
    Framework::Current().LogFramework({level, complete ? message : "incomplete line", file});
  }
};

class Logger : public orl::mv::logging::ILogger {
 public:
  Level GetLevel() const override {
    Note("GetLevel");
    return Framework::Current().level_;
  }
  void Log(Level level, const std::string& text, const char* file, size_t line) const override {
    Note("Log");
    Framework::Current().LogHost({level, text, line > 0 ? file : "no line"});
  }
};

Logger logger;

}  // namespace

Framework::Framework() : writer_(std::make_shared<Writer>()) {
  current = this;
}
Framework::~Framework() {
  current = nullptr;
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

void Framework::LogHost(LogLine line) {
  const std::lock_guard<std::mutex> lock(access_);
  hostLog_.push_back(std::move(line));
}

void Framework::LogFramework(LogLine line) {
  const std::lock_guard<std::mutex> lock(access_);
  frameworkLog_.push_back(std::move(line));
}

qel::BufferConstPtr MakeBuffer(uint32_t dataSize, std::string bytes) {
  return std::make_shared<Buffer>(dataSize, std::move(bytes));
}

qel::SampleConstPtr MakeSample(const std::string& streamId, std::vector<int> channels,
                               qel::BufferConstPtr buffer) {
  return std::make_shared<Sample<qel::ISample>>(
      SampleParts{streamId, std::make_shared<Channels>(std::move(channels)), std::move(buffer)});
}

qel::SampleConstPtr MakePicture() {
  return std::make_shared<Picture>(SampleParts{"decoded", nullptr, MakeBuffer(1)});
}

qel::SampleContainerConstPtr MakeContainer(qel::SampleList samples,
                                           std::optional<qel::TimeLimits> limits) {
  return std::make_shared<Container>(std::move(samples), std::move(limits));
}

qel::InfoConstPtr MakeInfo(const std::string& streamId, bool video) {
  if (video)
    return std::make_shared<VideoInfo>(streamId);
  return std::make_shared<Info<qel::IInfo>>(streamId);
}

qel::InfoContainerConstPtr MakeInfoContainer(qel::InfoList infos) {
  return std::make_shared<Infos>(std::move(infos));
}

void Source::UpdateConfig(qel::ParametersCollectionInstanceConstPtr config) {
  Note("UpdateConfig" + Text(config));
}

qel::MediaTime Source::GotoTimeOffset(const qel::MediaTime& time, std::string stream) {
  const qel::EditRate& rate = time.GetEditRate();
  Note("GotoTimeOffset " + std::to_string(time.GetTimeNumber()) + "@" +
       std::to_string(rate._numerator) + "/" + std::to_string(rate._denominator) + " " + stream +
       (time.GetClockInfo() ? " clock" : ""));
  return time;
}

void Source::SetInitConfig(qel::ParametersCollectionInstanceConstPtr config) {
  Note("SetInitConfig" + Text(config));
}

qel::InfoContainerConstPtr Source::GetDefinedOutput(std::string name) {
  Note("GetDefinedOutput \"" + name + "\"");
  return output_;
}

qel::SampleContainerConstPtr Source::GetSample() {
  Note("GetSample");
  return read_ ? read_() : nullptr;
}

void Decoder::SetInitConfig(qel::ParametersCollectionInstanceConstPtr config) {
  Note("SetInitConfig" + Text(config));
}

void Decoder::DefineInput(qel::InfoContainerConstPtr input, std::string name) {
  Note("DefineInput \"" + name + "\"");
  input_ = std::move(input);
}

qel::InfoContainerConstPtr Decoder::GetDefinedInput(std::string name) {
  Note("GetDefinedInput \"" + name + "\"");
  return input_;
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

Queue::~Queue() {
  for (const Moravel::Player::Output& output : outputs_)
    const std::unique_ptr<Moravel::Player::ISample> sample(output.sample_);
}

void Queue::Push(const Moravel::Player::Output& output) {
  Note("Push");
  outputs_.push_back(output);
}

bool Queues::Exists(Moravel::Player::CacheUpdateQueue*) {
  Note("Exists");
  return exists_;
}

bool Queues::PushIfExists(Moravel::Player::CacheUpdateQueue* queue,
                          const Moravel::Player::Output& output) {
  Note("PushIfExists");
  if (takes_)
    queue->Push(output);
  return takes_;
}

}  // namespace fake

// What the libraries would bring.

namespace qel {

using fake::Framework;
using fake::Name;
using fake::Note;

std::shared_ptr<ILoggerWriter> GetCurrentLoggerWriter() {
  return Framework::Current().writer_;
}
std::string GetCurrentTimeString() {
  return "time";
}
std::string GetThreadId() {
  return "thread";
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

std::string GetLabel(ElementFactoryType factoryType) {
  return "label" + std::to_string(factoryType);
}

MilestonePtr CreateMilestone(std::string description) {
  Note("CreateMilestone " + description);
  return std::make_unique<fake::Milestone>();
}

std::shared_ptr<IElementFactory> GetFactory(ElementFactoryType factoryType,
                                            const std::string& implementation,
                                            const std::string& type) {
  Note("GetFactory" + Name(factoryType, implementation, type));
  return Framework::Current().factory_;
}

std::shared_ptr<const IParametersCollectionInstance> GetManifest(ElementFactoryType factoryType,
                                                                 const std::string& implementation,
                                                                 const std::string& type) {
  Note("GetManifest" + Name(factoryType, implementation, type));
  return Framework::Current().manifest_ ? std::make_shared<fake::Parameters>() : nullptr;
}

ParametersCollectionPrototypeConstPtr GetInitConfigPrototype(ElementFactoryType factoryType,
                                                             const std::string& implementation,
                                                             const std::string& type) {
  Note("GetInitConfigPrototype" + Name(factoryType, implementation, type));
  return Framework::Current().initPrototype_ ? std::make_shared<fake::Prototype>() : nullptr;
}

ParametersCollectionPrototypeConstPtr GetUpdateConfigPrototype(ElementFactoryType factoryType,
                                                               const std::string& implementation,
                                                               const std::string& type) {
  Note("GetUpdateConfigPrototype" + Name(factoryType, implementation, type));
  return Framework::Current().updatePrototype_ ? std::make_shared<fake::Prototype>() : nullptr;
}

ParametersCollectionInstancePtr CreateParametersCollectionInstance(
    ParametersCollectionPrototypeConstPtr prototype) {
  Note("CreateParametersCollectionInstance");
  return prototype ? prototype->CreateInstance() : nullptr;
}

SourceInstance CreateWrapper(std::shared_ptr<ISource> element, std::shared_ptr<const IStep>) {
  Note("CreateWrapper");
  if (!Framework::Current().wrapperGivesElement_)
    return {};
  return {element, element, element};
}

VideoDecoderInstance CreateWrapper(std::shared_ptr<IVideoDecoder> element,
                                   std::shared_ptr<const IStep>) {
  Note("CreateWrapper");
  if (!Framework::Current().wrapperGivesElement_)
    return {};
  return {element, element, element};
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
  const InfoConstPtr info = map->GetInfo(sample->GetStreamId());
  return fake::MakeContainer({fake::MakeSample(
      info->GetStreamId(), sample->GetChannelInfo()->GetChannels(), sample->GetData())});
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
