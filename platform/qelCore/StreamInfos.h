#pragma once

#include <string>
#include <utility>

#include "qel/Infos.h"

namespace qel {

// A video stream as an element describes it. Immutable.
class QEL_API VideoInfo : public IVideoInfo {
 public:
  VideoInfo(std::string streamId, int width, int height, int64_t sampleCount, EditRate editRate)
      : streamId_(std::move(streamId)),
        width_(width),
        height_(height),
        sampleCount_(sampleCount),
        editRate_(editRate) {}

  const std::string& GetStreamId() const override { return streamId_; }
  int GetWidth() const override { return width_; }
  int GetHeight() const override { return height_; }
  int64_t GetSampleCount() const override { return sampleCount_; }
  const EditRate& GetEditRate() const override { return editRate_; }

 private:
  const std::string streamId_;
  const int width_;
  const int height_;
  const int64_t sampleCount_;
  const EditRate editRate_;
};

// A container of several streams.
QEL_API InfoContainerConstPtr CreateInfoContainer(InfoList infos);

}  // namespace qel
