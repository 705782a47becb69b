#include "elements/storage/AvDemuxer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr int kIoBufferBytes = 32 << 10;

// What is wrong with a file becomes an exception; libavformat's own lines would go past the
// framework's log.
void SilenceOwnLog() {
  static const bool silenced = (av_log_set_level(AV_LOG_QUIET), true);
  static_cast<void>(silenced);
}

std::string ErrorText(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(error, text, sizeof text);
  return text;
}

}  // namespace

void AvDemuxer::CloseIo::operator()(AVIOContext* io) const {
  av_freep(&io->buffer);
  avio_context_free(&io);
}

AvDemuxer::AvDemuxer(const char* format, int64_t size, int64_t maxBytes, ReadAt readAt)
    : size_(size), readAt_(std::move(readAt)), bytesLeft_(maxBytes) {
  SilenceOwnLog();
  std::unique_ptr<void, decltype(&av_free)> buffer(av_malloc(kIoBufferBytes), &av_free);
  io_.reset(buffer ? avio_alloc_context(static_cast<unsigned char*>(buffer.get()), kIoBufferBytes,
                                        0, this, &AvDemuxer::Read, nullptr, &AvDemuxer::Seek)
                   : nullptr);
  if (!io_)
    throw std::bad_alloc();
  static_cast<void>(buffer.release());

  AVFormatContext* context = avformat_alloc_context();
  if (context == nullptr)
    throw std::bad_alloc();
  context->pb = io_.get();
  // The format is given, so nothing is probed and no other format can be reached.
  const int result = avformat_open_input(&context, "", av_find_input_format(format), nullptr);
  context_.reset(result == 0 ? context : nullptr);  // it frees the context when it fails
  if (error_)
    std::rethrow_exception(error_);
  if (result != 0) {
    throw QELRuntimeError(
        QEL_TEXT("its " << format << " header cannot be read: " << ErrorText(result)));
  }
}

const AVStream& AvDemuxer::MotionJpegStream() const {
  std::string others;
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    const AVStream& stream = *context_->streams[i];
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
        stream.codecpar->codec_id == AV_CODEC_ID_MJPEG)
      return stream;
    if (others.size() < 100)
      others +=
          (others.empty() ? "" : ", ") + std::string(avcodec_get_name(stream.codecpar->codec_id));
  }
  throw QELRuntimeError(QEL_TEXT("the file has no motion-JPEG video stream (it has: "
                                 << (others.empty() ? "none" : others) << ")"));
}

int AvDemuxer::Read(void* self, uint8_t* bytes, int size) {
  auto* const demuxer = static_cast<AvDemuxer*>(self);
  try {
    return demuxer->ReadSome({bytes, static_cast<size_t>(size)});
  } catch (...) {  // must not pass through the library: the constructor throws it again
    demuxer->error_ = std::current_exception();
    return AVERROR(EIO);
  }
}

int AvDemuxer::ReadSome(std::span<uint8_t> bytes) {
  if (error_)
    return AVERROR(EIO);
  const std::span<const uint8_t> there = readAt_(position_);
  if (there.empty())
    return AVERROR_EOF;
  const size_t count = std::min(there.size(), bytes.size());
  bytesLeft_ -= static_cast<int64_t>(count);
  if (bytesLeft_ < 0)
    throw QELRuntimeError("its index is too long, or refers to the same bytes over and over");
  std::memcpy(bytes.data(), there.data(), count);
  position_ += static_cast<int64_t>(count);
  return static_cast<int>(count);
}

int64_t AvDemuxer::Seek(void* self, int64_t offset, int whence) {
  auto* const demuxer = static_cast<AvDemuxer*>(self);
  if (whence == AVSEEK_SIZE)
    return demuxer->size_;
  if (whence == SEEK_CUR)
    offset += demuxer->position_;
  else if (whence == SEEK_END)
    offset += demuxer->size_;
  if (offset < 0)
    return AVERROR(EINVAL);
  demuxer->position_ = offset;
  return offset;
}

}  // namespace qel
