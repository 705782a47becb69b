#pragma once

#include <gmock/gmock.h>
#include <turbojpeg.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qel/Elements.h"
#include "qel/Logging.h"
#include "qel/QELRuntimeError.h"
#include "qelCore/Infos.h"
#include "qelCore/LoggerWriter.h"
#include "qelCore/Samples.h"
#include "support/ClipMaker.h"

namespace qel::mjpeg {

using Moravel::Test::MakeJpeg;
using Bytes = std::vector<uint8_t>;

constexpr uint8_t kBaselineFrame = 0xC0;
constexpr uint8_t kProgressiveFrame = 0xC2;
constexpr uint8_t kHuffmanTables = 0xC4;
constexpr uint8_t kArithmeticFrame = 0xC9;
constexpr uint8_t kStartOfScan = 0xDA;
constexpr uint8_t kQuantizationTables = 0xDB;

InfoConstPtr NewTrack();
BufferConstPtr NewBuffer(Bytes bytes);
SampleContainerConstPtr NewContainer(BufferConstPtr data);

// The same picture coded progressively, with Huffman tables of its own.
Bytes MakeProgressive(const Bytes& jpeg);
// Without the segments of that marker.
Bytes WithoutSegments(Bytes jpeg, uint8_t marker);
// Where the first segment of that marker begins; the start of scan when there is none before it.
size_t FindSegment(const Bytes& jpeg, uint8_t marker);

// TurboJPEG's own decoding, in one of its pixel formats.
Bytes ReferencePixels(const Bytes& jpeg, int width, int height, int pixelFormat);

MediaFilterPtr NewElement(VideoDecoderControlPtr* control = nullptr);
ParametersCollectionInstancePtr NewInitConfig(FourCC fourCC);

// An element as the host uses it: made by name, configured, defined.
class TestDecoder {
 public:
  explicit TestDecoder(InfoConstPtr track, FourCC fourCC = FourCC_I420, int width = 0,
                       int height = 0);

  void SetOutputSize(int64_t width, int64_t height);
  // Pushes the picture and takes the one output of it.
  VideoSampleConstPtr Decode(const BufferConstPtr& encoded);
  VideoSampleConstPtr Decode(const Bytes& jpeg) { return Decode(NewBuffer(jpeg)); }

  VideoDecoderControlPtr control_;
  MediaFilterPtr filter_ = NewElement(&control_);
};

Bytes BytesOf(const VideoSampleConstPtr& picture);
// The number that the test pictures carry, read from the picture's luma.
int NumberOf(const VideoSampleConstPtr& picture);

// Collects the framework's warning lines while it lives.
class WarningLog : public ILoggerWriter {
 public:
  WarningLog() { SetCurrentLoggerWriter({std::shared_ptr<void>(), this}); }
  ~WarningLog() override { SetCurrentLoggerWriter(nullptr); }
  void WriteLog(LogLevel level, const char* message, const char*, const char*, const char*,
                const char*, const char*, const char*) override {
    if (level == QEL_WARNING)
      lines_.push_back(message);
  }

  std::vector<std::string> lines_;
};

}  // namespace qel::mjpeg
