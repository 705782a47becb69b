#include "qelCore/SampleFactory.h"

#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

class ChannelInfo : public IChannelInfo {
 public:
  explicit ChannelInfo(int channel) : channels_{channel} {}
  const ChannelsList& GetChannels() const override { return channels_; }

 private:
  const ChannelsList channels_;
};

// The part that every kind of sample has; Interface is the face it shows.
template <typename Interface>
class SampleBase : public Interface {
 public:
  SampleBase(InfoConstPtr info, ChannelInfoConstPtr channelInfo, BufferConstPtr data)
      : info_(std::move(info)), channelInfo_(std::move(channelInfo)), data_(std::move(data)) {
    CheckPointer(info_, "sample info");
  }

  const std::string& GetStreamId() const override { return info_->GetStreamId(); }
  BufferConstPtr GetData() const override { return data_; }
  ChannelInfoConstPtr GetChannelInfo() const override { return channelInfo_; }
  InfoConstPtr GetInfo() const override { return info_; }

 private:
  const InfoConstPtr info_;
  const ChannelInfoConstPtr channelInfo_;
  const BufferConstPtr data_;
};

using Sample = SampleBase<ISample>;

class VideoSample : public SampleBase<IVideoSample> {
 public:
  VideoSample(InfoConstPtr info, ChannelInfoConstPtr channelInfo, BufferConstPtr data, int width,
              int height, FourCC fourCC)
      : SampleBase(std::move(info), std::move(channelInfo), std::move(data)),
        width_(width),
        height_(height),
        fourCC_(fourCC) {}

  int GetWidth() const override { return width_; }
  int GetHeight() const override { return height_; }
  FourCC GetFourCC() const override { return fourCC_; }

 private:
  const int width_;
  const int height_;
  const FourCC fourCC_;
};

// The same sample on another stream.
SampleConstPtr Redescribe(const SampleConstPtr& sample, const InfoConstPtr& info) {
  if (const auto picture = std::dynamic_pointer_cast<const IVideoSample>(sample)) {
    return CreateVideoSample(info, picture->GetChannelInfo(), picture->GetData(),
                             picture->GetWidth(), picture->GetHeight(), picture->GetFourCC());
  }
  return CreateSample(info, sample->GetChannelInfo(), sample->GetData());
}

class SampleContainer : public ISampleContainer {
 public:
  using Times = std::map<std::string, TimeLimits>;

  SampleContainer(SampleList samples, Times times)
      : samples_(std::move(samples)), times_(std::move(times)) {}

  SampleList GetAllSamples() const override { return samples_; }

  VideoSampleList GetVideoSampleList(VideoParametersConstPtr,
                                     VideoParametersConstPtr) const override {
    VideoSampleList videoSamples;
    for (const SampleConstPtr& sample : samples_) {
      if (auto videoSample = std::dynamic_pointer_cast<const IVideoSample>(sample))
        videoSamples.push_back(std::move(videoSample));
    }
    return videoSamples;
  }

  const TimeLimits& GetTimeInfo(std::string name) const override {
    const auto entry = times_.find(name);
    if (entry == times_.end())
      QEL_RAISE("sample container has no time \"" << name << "\"");
    return entry->second;
  }

  SampleContainerConstPtr Duplicate(const IStreamIdToInfoMap& map) const {
    SampleList duplicates;
    duplicates.reserve(samples_.size());
    for (const SampleConstPtr& sample : samples_) {
      const InfoConstPtr info = sample ? map.GetInfo(sample->GetStreamId()) : nullptr;
      duplicates.push_back(info ? Redescribe(sample, info) : sample);
    }
    return CreateSampleContainer(std::move(duplicates), times_);
  }

 private:
  const SampleList samples_;
  const Times times_;
};

}  // namespace

ChannelInfoConstPtr CreateChannelInfo(int channel) {
  return std::make_shared<ChannelInfo>(channel);
}

SampleConstPtr CreateSample(InfoConstPtr info, ChannelInfoConstPtr channelInfo,
                            BufferConstPtr data) {
  return std::make_shared<Sample>(std::move(info), std::move(channelInfo), std::move(data));
}

SampleConstPtr CreateVideoSample(InfoConstPtr info, ChannelInfoConstPtr channelInfo,
                                 BufferConstPtr data, int width, int height, FourCC fourCC) {
  return std::make_shared<VideoSample>(std::move(info), std::move(channelInfo), std::move(data),
                                       width, height, fourCC);
}

SampleContainerConstPtr CreateSampleContainer(SampleList samples,
                                              std::map<std::string, TimeLimits> times) {
  return std::make_shared<SampleContainer>(std::move(samples), std::move(times));
}

SampleContainerConstPtr CreateSampleContainer(SampleConstPtr sample, PackagingInfoConstPtr) {
  return CreateSampleContainer(SampleList{std::move(sample)}, {});
}

SampleContainerConstPtr DuplicateSampleContainer(SampleContainerConstPtr container,
                                                 StreamIdToInfoMapConstPtr map) {
  const auto own = std::dynamic_pointer_cast<const SampleContainer>(container);
  CheckPointer(own, "container to duplicate");
  CheckPointer(map, "streamIdToInfoMap");
  return own->Duplicate(*map);
}

}  // namespace qel
