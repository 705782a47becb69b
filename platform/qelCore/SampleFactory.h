#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "qel/Samples.h"

// Framework samples as elements make them. All are immutable once made.
namespace qel {

// A view of `size` bytes that `owner` keeps alive.
class QEL_API BufferView : public IBuffer {
 public:
  BufferView(std::shared_ptr<const void> owner, const uint8_t* data, uint32_t size)
      : owner_(std::move(owner)), data_(data), size_(size) {}

  const uint8_t* GetInnerBuffer() const override { return data_; }
  uint32_t GetInnerBufferSize() const override { return size_; }
  uint32_t GetDataSize() const override { return size_; }

 private:
  const std::shared_ptr<const void> owner_;
  const uint8_t* const data_;
  const uint32_t size_;
};

// Channel info of one channel.
QEL_API ChannelInfoConstPtr CreateChannelInfo(int channel);

// A sample of the stream that `info` describes.
QEL_API SampleConstPtr CreateSample(InfoConstPtr info, ChannelInfoConstPtr channelInfo,
                                    BufferConstPtr data);

// An uncompressed picture of that stream.
QEL_API SampleConstPtr CreateVideoSample(InfoConstPtr info, ChannelInfoConstPtr channelInfo,
                                         BufferConstPtr data, int width, int height, FourCC fourCC);

// A container of several samples, with named times.
QEL_API SampleContainerConstPtr CreateSampleContainer(SampleList samples,
                                                      std::map<std::string, TimeLimits> times);

}  // namespace qel
