#include "mjpeg/MjpegTest.h"

#include "elements/mjpeg/MotionJpegDecoder.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel::mjpeg {

namespace {

using Handle = std::unique_ptr<void, decltype(&tjDestroy)>;

size_t SegmentBytes(const Bytes& jpeg, size_t at) {
  return 2 + (size_t{jpeg.at(at + 2)} << 8 | jpeg.at(at + 3));
}

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
  return CreateSampleContainer(CreateSample(NewTrack(), CreateChannelInfo(0), std::move(data)),
                               nullptr);
}

Bytes MakeProgressive(const Bytes& jpeg) {
  const Handle handle(tjInitTransform(), &tjDestroy);
  tjtransform transform = {};
  transform.options = TJXOPT_PROGRESSIVE;
  unsigned char* data = nullptr;
  unsigned long size = 0;
  tjTransform(handle.get(), jpeg.data(), jpeg.size(), 1, &data, &size, &transform, 0);
  const Bytes progressive(data, data + size);
  tjFree(data);
  return progressive;
}

size_t FindSegment(const Bytes& jpeg, uint8_t marker) {
  size_t at = 2;
  while (jpeg.at(at + 1) != marker && jpeg.at(at + 1) != kStartOfScan)
    at += SegmentBytes(jpeg, at);
  return at;
}

Bytes WithoutSegments(Bytes jpeg, uint8_t marker) {
  for (size_t at = 0; jpeg.at((at = FindSegment(jpeg, marker)) + 1) == marker;) {
    const auto begin = jpeg.begin() + ptrdiff_t(at);
    jpeg.erase(begin, begin + ptrdiff_t(SegmentBytes(jpeg, at)));
  }
  return jpeg;
}

Bytes ReferencePixels(const Bytes& jpeg, int width, int height, int pixelFormat) {
  const Handle handle(tjInitDecompress(), &tjDestroy);
  Bytes pixels(size_t(width * height * tjPixelSize[pixelFormat]));
  tjDecompress2(handle.get(), jpeg.data(), jpeg.size(), pixels.data(), width, 0, height,
                pixelFormat, 0);
  return pixels;
}

MediaFilterPtr NewElement(VideoDecoderControlPtr* control) {
  RegisterMotionJpegDecoder();
  const auto instance =
      ImplementElement<ElementFactoryType_VideoDecoder>("qel", "video.mjpeg", nullptr);
  if (control != nullptr)
    *control = std::get<1>(instance);
  return std::get<0>(instance);
}

ParametersCollectionInstancePtr NewInitConfig(FourCC fourCC) {
  const auto config = NewConfig(GetInitConfigPrototype);
  config->SetParamFourCC("OutputFourCC", fourCC);
  return config;
}

TestDecoder::TestDecoder(InfoConstPtr track, FourCC fourCC, int width, int height) {
  filter_->SetInitConfig(NewInitConfig(fourCC));
  SetOutputSize(width, height);
  filter_->DefineInput(CreateInfoContainer(std::move(track), nullptr), "");
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

int NumberOf(const VideoSampleConstPtr& picture) {
  return Moravel::Test::ReadPictureNumber(picture->GetData()->GetInnerBuffer(), picture->GetWidth(),
                                          picture->GetWidth(), picture->GetHeight());
}

}  // namespace qel::mjpeg
