#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qel/Export.h"
#include "qel/FourCC.h"
#include "qel/Infos.h"
#include "qel/MediaTime.h"

namespace qel {

// Bytes of one sample: shared, immutable once published. May be a view into a larger buffer that
// it keeps alive.
class QEL_API IBuffer {
 public:
  virtual ~IBuffer() = default;

  virtual const uint8_t* GetInnerBuffer() const = 0;
  // Bytes that may be read from GetInnerBuffer(), and how many of them are the sample's data.
  virtual uint32_t GetInnerBufferSize() const = 0;
  virtual uint32_t GetDataSize() const = 0;
};
using BufferConstPtr = std::shared_ptr<const IBuffer>;

using ChannelsList = std::vector<int>;

// Which channels of the material a sample carries: 0 top field or progressive frame, 1 bottom
// field.
class QEL_API IChannelInfo {
 public:
  virtual ~IChannelInfo() = default;

  virtual const ChannelsList& GetChannels() const = 0;
};
using ChannelInfoConstPtr = std::shared_ptr<const IChannelInfo>;

// One sample of one stream. Immutable.
class QEL_API ISample {
 public:
  virtual ~ISample() = default;

  virtual const std::string& GetStreamId() const = 0;
  virtual BufferConstPtr GetData() const = 0;
  virtual ChannelInfoConstPtr GetChannelInfo() const = 0;
  virtual InfoConstPtr GetInfo() const = 0;
};
using SampleConstPtr = std::shared_ptr<const ISample>;
using SampleList = std::vector<SampleConstPtr>;

// An uncompressed picture. Its bytes are the planes of the format one after the other, rows
// without padding; odd sizes round chroma up.
class QEL_API IVideoSample : public ISample {
 public:
  virtual int GetWidth() const = 0;
  virtual int GetHeight() const = 0;
  virtual FourCC GetFourCC() const = 0;
};
using VideoSampleConstPtr = std::shared_ptr<const IVideoSample>;
using VideoSampleList = std::vector<VideoSampleConstPtr>;

// Narrows a list of video samples; an empty handle narrows nothing.
class QEL_API IVideoParameters {
 public:
  virtual ~IVideoParameters() = default;
};
using VideoParametersConstPtr = std::shared_ptr<const IVideoParameters>;

// Samples that travel together, one per stream, with named times. Immutable.
class QEL_API ISampleContainer {
 public:
  virtual ~ISampleContainer() = default;

  virtual SampleList GetAllSamples() const = 0;
  virtual VideoSampleList GetVideoSampleList(VideoParametersConstPtr least,
                                             VideoParametersConstPtr most) const = 0;
  // Throws QELRuntimeError when the container has no time of that name.
  virtual const TimeLimits& GetTimeInfo(std::string name) const = 0;
};
using SampleContainerConstPtr = std::shared_ptr<const ISampleContainer>;

// A new container of one sample, without times.
QEL_API SampleContainerConstPtr CreateSampleContainer(SampleConstPtr sample,
                                                      PackagingInfoConstPtr packagingInfo);

// A new container of the same samples, buffers shared: a sample whose stream id is a key of the map
// is described by the mapped info and belongs to that info's stream.
QEL_API SampleContainerConstPtr DuplicateSampleContainer(SampleContainerConstPtr container,
                                                         StreamIdToInfoMapConstPtr map);

}  // namespace qel
