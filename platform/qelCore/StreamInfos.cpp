#include "qelCore/StreamInfos.h"

#include <map>

namespace qel {

namespace {

class InfoContainer : public IInfoContainer {
 public:
  explicit InfoContainer(InfoList infos) : infos_(std::move(infos)) {}

  InfoList GetInfoList() const override { return infos_; }

  VideoInfoList GetVideoInfoList() const override {
    VideoInfoList videoInfos;
    for (const InfoConstPtr& info : infos_) {
      if (auto videoInfo = std::dynamic_pointer_cast<const IVideoInfo>(info))
        videoInfos.push_back(std::move(videoInfo));
    }
    return videoInfos;
  }

 private:
  const InfoList infos_;
};

class StreamIdToInfoMap : public IStreamIdToInfoMap {
 public:
  void AddInfo(std::string streamId, InfoConstPtr info) override {
    infos_.insert_or_assign(std::move(streamId), std::move(info));
  }

  InfoConstPtr GetInfo(const std::string& streamId) const override {
    const auto entry = infos_.find(streamId);
    return entry == infos_.end() ? nullptr : entry->second;
  }

 private:
  std::map<std::string, InfoConstPtr> infos_;
};

}  // namespace

InfoContainerConstPtr CreateInfoContainer(InfoList infos) {
  return std::make_shared<InfoContainer>(std::move(infos));
}

InfoContainerConstPtr CreateInfoContainer(InfoConstPtr info, PackagingInfoConstPtr) {
  return CreateInfoContainer(InfoList{std::move(info)});
}

StreamIdToInfoMapPtr CreateStreamIdToInfoMap() {
  return std::make_shared<StreamIdToInfoMap>();
}

}  // namespace qel
