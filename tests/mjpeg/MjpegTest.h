#pragma once

#include <gmock/gmock.h>
#include <turbojpeg.h>

#include <string>

#include "qelCore/LoggerWriter.h"
#include "support/ClipMaker.h"
#include "support/TestDecoder.h"

namespace qel::mjpeg {

using namespace Moravel::Test;
using Bytes = std::vector<uint8_t>;

// TurboJPEG's own decoding, in one of its pixel formats.
inline Bytes ReferencePixels(const Bytes& jpeg, int width, int height, int pixelFormat) {
  const std::unique_ptr<void, decltype(&tjDestroy)> handle(tjInitDecompress(), &tjDestroy);
  Bytes pixels(size_t(width * height * tjPixelSize[pixelFormat]));
  tjDecompress2(handle.get(), jpeg.data(), jpeg.size(), pixels.data(), width, 0, height,
                pixelFormat, 0);
  return pixels;
}

inline Bytes BytesOf(const VideoSampleConstPtr& picture) {
  const BufferConstPtr data = picture->GetData();
  return Bytes(data->GetInnerBuffer(), data->GetInnerBuffer() + data->GetDataSize());
}
// The number that the test pictures carry, read from the picture's luma.
inline int NumberOf(const VideoSampleConstPtr& picture) {
  return ReadPictureNumber(picture->GetData()->GetInnerBuffer(), picture->GetWidth(),
                           picture->GetWidth(), picture->GetHeight());
}

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
