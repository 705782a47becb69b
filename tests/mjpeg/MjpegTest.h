#pragma once

#include <gmock/gmock.h>
#include <turbojpeg.h>

#include <cstdint>
#include <string>
#include <vector>

#include "qel/Elements.h"
#include "qel/Logging.h"
#include "qel/QELRuntimeError.h"
#include "qelCore/Infos.h"
#include "qelCore/Samples.h"
#include "support/ClipMaker.h"

namespace qel::mjpeg {

using Moravel::Test::MakeJpeg;
using Moravel::Test::PictureSpec;
using Bytes = std::vector<uint8_t>;

InfoConstPtr NewTrack();
BufferConstPtr NewBuffer(Bytes bytes);
SampleContainerConstPtr NewContainer(BufferConstPtr data);

// The same picture coded progressively, with Huffman tables of its own.
Bytes MakeProgressive(const Bytes& jpeg);
// Without the segments of that marker.
Bytes WithoutSegments(const Bytes& jpeg, uint8_t marker);
// Where the first segment of that marker begins.
size_t FindSegment(const Bytes& jpeg, uint8_t marker);

// TurboJPEG's own decoding, in one of its pixel formats.
Bytes ReferencePixels(const Bytes& jpeg, int pixelFormat);

// An element as the host uses it: made by name, configured, defined.
class TestDecoder {
 public:
  explicit TestDecoder(InfoConstPtr track, FourCC fourCC = FourCC_I420, int width = 0,
                       int height = 0);

  void SetOutputFourCC(FourCC fourCC);
  void SetOutputSize(int64_t width, int64_t height);
  // Pushes the picture and takes the one output of it.
  VideoSampleConstPtr Decode(const BufferConstPtr& encoded);
  VideoSampleConstPtr Decode(const Bytes& jpeg) { return Decode(NewBuffer(jpeg)); }

  MediaFilterPtr filter_;
  VideoDecoderControlPtr control_;
};

Bytes BytesOf(const VideoSampleConstPtr& picture);

// Collects the framework's warning lines while it lives.
class WarningLog {
 public:
  WarningLog();
  ~WarningLog();

  const std::vector<std::string>& Lines() const;

 private:
  class Writer;
  const std::shared_ptr<Writer> writer_;
};

}  // namespace qel::mjpeg
