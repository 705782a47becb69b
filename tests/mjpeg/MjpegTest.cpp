#include "mjpeg/MjpegTest.h"

#include <algorithm>
#include <stdexcept>

#include "elements/mjpeg/MotionJpegDecoder.h"
#include "qel/WorkflowStepImplementation.h"
#include "qelCore/LoggerWriter.h"

namespace qel::mjpeg {

namespace {

struct CloseHandle {
  void operator()(void* handle) const { tjDestroy(handle); }
};
using Handle = std::unique_ptr<void, CloseHandle>;

ParametersCollectionInstancePtr NewConfig(decltype(GetInitConfigPrototype) prototype) {
  return prototype(ElementFactoryType_VideoDecoder, "qel", "video.mjpeg")->CreateInstance();
}

}  // namespace

InfoConstPtr NewTrack() {
  return std::make_shared<VideoInfo>("track", 64, 48, 100, EditRate(25, 1));
}

BufferConstPtr NewBuffer(Bytes bytes) {
  const auto owner = std::make_shared<Bytes>(std::move(bytes));
  return std::make_shared<BufferView>(owner, owner->data(), static_cast<uint32_t>(owner->size()));
}

SampleContainerConstPtr NewContainer(BufferConstPtr data) {
  static const InfoConstPtr info = NewTrack();
  return CreateSampleContainer(CreateSample(info, CreateChannelInfo(0), std::move(data)), nullptr);
}

Bytes MakeProgressive(const Bytes& jpeg) {
  const Handle handle(tjInitTransform());
  tjtransform transform = {};
  transform.options = TJXOPT_PROGRESSIVE;
  unsigned char* data = nullptr;
  unsigned long size = 0;
  if (tjTransform(handle.get(), jpeg.data(), jpeg.size(), 1, &data, &size, &transform, 0) != 0)
    throw std::runtime_error(tjGetErrorStr2(handle.get()));
  const Bytes progressive(data, data + size);
  tjFree(data);
  return progressive;
}

size_t FindSegment(const Bytes& jpeg, uint8_t marker) {
  size_t at = 2;
  while (jpeg.at(at + 1) != marker)
    at += 2 + (size_t{jpeg.at(at + 2)} << 8 | jpeg.at(at + 3));
  return at;
}

Bytes WithoutSegments(const Bytes& jpeg, uint8_t marker) {
  constexpr uint8_t kStartOfScan = 0xDA;
  Bytes result(jpeg.begin(), jpeg.begin() + 2);
  size_t at = 2;
  while (jpeg.at(at + 1) != kStartOfScan) {
    const size_t end = at + 2 + (size_t{jpeg.at(at + 2)} << 8 | jpeg.at(at + 3));
    if (jpeg.at(at + 1) != marker)
      result.insert(result.end(), &jpeg[at], &jpeg[end]);
    at = end;
  }
  result.insert(result.end(), &jpeg[at], jpeg.data() + jpeg.size());
  return result;
}

Bytes ReferencePixels(const Bytes& jpeg, int pixelFormat) {
  const Handle handle(tjInitDecompress());
  int width = 0, height = 0, subsampling = 0, colorSpace = 0;
  tjDecompressHeader3(handle.get(), jpeg.data(), jpeg.size(), &width, &height, &subsampling,
                      &colorSpace);
  Bytes pixels(size_t(width * height * tjPixelSize[pixelFormat]));
  tjDecompress2(handle.get(), jpeg.data(), jpeg.size(), pixels.data(), width, 0, height,
                pixelFormat, 0);
  return pixels;
}

TestDecoder::TestDecoder(InfoConstPtr track, FourCC fourCC, int width, int height) {
  RegisterMotionJpegDecoder();
  std::tie(filter_, control_, std::ignore) =
      ImplementElement<ElementFactoryType_VideoDecoder>("qel", "video.mjpeg", nullptr);
  SetOutputFourCC(fourCC);
  SetOutputSize(width, height);
  filter_->DefineInput(CreateInfoContainer(std::move(track), nullptr), "");
}

void TestDecoder::SetOutputFourCC(FourCC fourCC) {
  const auto config = NewConfig(GetInitConfigPrototype);
  config->SetParamFourCC("OutputFourCC", fourCC);
  filter_->SetInitConfig(config);
}

void TestDecoder::SetOutputSize(int64_t width, int64_t height) {
  const auto config = NewConfig(GetUpdateConfigPrototype);
  config->SetParamInt64("output_width", width);
  config->SetParamInt64("output_height", height);
  control_->UpdateConfig(config);
}

VideoSampleConstPtr TestDecoder::Decode(const BufferConstPtr& encoded) {
  filter_->PushSample(NewContainer(encoded));
  return filter_->GetSample()->GetVideoSampleList(nullptr, nullptr).at(0);
}

Bytes BytesOf(const VideoSampleConstPtr& picture) {
  const BufferConstPtr data = picture->GetData();
  return Bytes(data->GetInnerBuffer(), data->GetInnerBuffer() + data->GetDataSize());
}

class WarningLog::Writer : public ILoggerWriter {
 public:
  void WriteLog(LogLevel level, const char* message, const char*, const char*, const char*,
                const char*, const char*, const char*) override {
    if (level == QEL_WARNING)
      lines_.push_back(message);
  }

  std::vector<std::string> lines_;
};

WarningLog::WarningLog() : writer_(std::make_shared<Writer>()) {
  SetCurrentLoggerWriter(writer_);
}

WarningLog::~WarningLog() {
  SetCurrentLoggerWriter(nullptr);
}

const std::vector<std::string>& WarningLog::Lines() const {
  return writer_->lines_;
}

}  // namespace qel::mjpeg
