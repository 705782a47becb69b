#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <span>

extern "C" {
#include <libavformat/avformat.h>
}

namespace qel {

// Holds what libavformat makes of a file's header, read through a function. Used by one thread.
class AvDemuxer {
 public:
  // The bytes of the file from an offset on, as many as are at hand: none at its end.
  using ReadAt = std::function<std::span<const uint8_t>(int64_t offset)>;

  // `format` is "avi" or "mov". Throws QELRuntimeError when libavformat refuses the file or asks
  // for more than `maxBytes` in all, or what `readAt` threw.
  AvDemuxer(const char* format, int64_t size, int64_t maxBytes, ReadAt readAt);
  AvDemuxer(const AvDemuxer&) = delete;
  AvDemuxer& operator=(const AvDemuxer&) = delete;

  // The first motion-JPEG stream; throws QELRuntimeError, which names what there is, without one.
  const AVStream& MotionJpegStream() const;

 private:
  struct CloseContext {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
  };
  struct CloseIo {
    void operator()(AVIOContext* io) const;
  };

  static int Read(void* self, uint8_t* bytes, int size);
  static int64_t Seek(void* self, int64_t offset, int whence);
  int ReadSome(std::span<uint8_t> bytes);

  const int64_t size_;
  const ReadAt readAt_;
  int64_t bytesLeft_;
  int64_t position_ = 0;
  std::exception_ptr error_;
  std::unique_ptr<AVIOContext, CloseIo> io_;
  std::unique_ptr<AVFormatContext, CloseContext> context_;
};

}  // namespace qel
