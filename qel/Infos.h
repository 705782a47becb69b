#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qel/Export.h"
#include "qel/MediaTime.h"

namespace qel {

// Describes one stream. Immutable.
class QEL_API IInfo {
 public:
  virtual ~IInfo() = default;

  virtual const std::string& GetStreamId() const = 0;
};
using InfoConstPtr = std::shared_ptr<const IInfo>;
using InfoList = std::vector<InfoConstPtr>;

// Describes one video stream: what every picture of it looks like, and how they follow each other.
class QEL_API IVideoInfo : public IInfo {
 public:
  // Size of one coded picture in pixels: of a frame, or of one field of interlaced material.
  virtual int GetWidth() const = 0;
  virtual int GetHeight() const = 0;

  // Samples (frames, or pairs of fields) of the stream, and their mean rate per second.
  virtual int64_t GetSampleCount() const = 0;
  virtual const EditRate& GetEditRate() const = 0;
};
using VideoInfoConstPtr = std::shared_ptr<const IVideoInfo>;
using VideoInfoList = std::vector<VideoInfoConstPtr>;

// The streams of an element's input or output. Immutable.
class QEL_API IInfoContainer {
 public:
  virtual ~IInfoContainer() = default;

  virtual InfoList GetInfoList() const = 0;
  virtual VideoInfoList GetVideoInfoList() const = 0;
};
using InfoContainerConstPtr = std::shared_ptr<const IInfoContainer>;

// How streams are packaged into a file or a transport; none of the elements here needs one.
class QEL_API IPackagingInfo {
 public:
  virtual ~IPackagingInfo() = default;
};
using PackagingInfoConstPtr = std::shared_ptr<const IPackagingInfo>;

// A container of one stream.
QEL_API InfoContainerConstPtr CreateInfoContainer(InfoConstPtr info,
                                                  PackagingInfoConstPtr packagingInfo);

// Which info belongs to which stream id. One thread fills it, then it is read as a map to const.
class QEL_API IStreamIdToInfoMap {
 public:
  virtual ~IStreamIdToInfoMap() = default;

  virtual void AddInfo(std::string streamId, InfoConstPtr info) = 0;
  // The info recorded under the id, empty when there is none.
  virtual InfoConstPtr GetInfo(const std::string& streamId) const = 0;
};
using StreamIdToInfoMapPtr = std::shared_ptr<IStreamIdToInfoMap>;
using StreamIdToInfoMapConstPtr = std::shared_ptr<const IStreamIdToInfoMap>;

QEL_API StreamIdToInfoMapPtr CreateStreamIdToInfoMap();

}  // namespace qel
