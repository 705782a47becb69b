#include "elements/mjpeg/MotionJpegDecoder.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <utility>

#include "elements/mjpeg/JpegPicture.h"
#include "elements/mjpeg/OutputPicture.h"
#include "elements/mjpeg/PixelFormat.h"
#include "elements/mjpeg/SharedPictures.h"
#include "qel/WorkflowStepImplementation.h"
#include "qelCore/ParameterPrototype.h"
#include "qelCore/Printable.h"
#include "qelCore/Registry.h"
#include "qelCore/SampleFactory.h"

namespace qel {

namespace {

using namespace mjpeg;

constexpr char kOutputFourCC[] = "OutputFourCC";
constexpr char kOutputWidth[] = "output_width";
constexpr char kOutputHeight[] = "output_height";

// Its four characters.
std::string Text(FourCC fourCC) {
  std::string text;
  for (int shift = 0; shift < 32; shift += 8)
    text += static_cast<char>(fourCC >> shift);
  return Printable(text);
}

FourCC ReadOutputFourCC(const ParametersCollectionInstanceConstPtr& config) {
  if (!config)
    throw QELRuntimeError("motion-JPEG decoder needs an init configuration");
  const FourCC fourCC = config->GetParamFourCC(kOutputFourCC).value_or(FourCC_I420);
  if (FindPixelFormat(fourCC) == nullptr) {
    throw QELRuntimeError(QEL_TEXT("OutputFourCC \"" << Text(fourCC)
                                                     << "\" is not supported; supported are "
                                                     << SupportedFormats()));
  }
  return fourCC;
}

Size ReadOutputSize(const ParametersCollectionInstanceConstPtr& config) {
  if (!config)
    throw QELRuntimeError("motion-JPEG decoder was given no update configuration");
  const int64_t width = config->GetParamInt64(kOutputWidth).value_or(0);
  const int64_t height = config->GetParamInt64(kOutputHeight).value_or(0);
  if (width == 0 && height == 0)
    return {};
  if (!IsWithinLimits(width, height)) {
    throw QELRuntimeError(QEL_TEXT(
        "output size " << width << "x" << height << " is not supported: both or none, at most "
                       << kMaxPictureSide << " a side and " << kMaxPicturePixels << " pixels"));
  }
  return {static_cast<int>(width), static_cast<int>(height)};
}

// The one sample that a container must hold.
SampleConstPtr OnlySample(const SampleContainerConstPtr& container) {
  const SampleList samples = container ? container->GetAllSamples() : SampleList();
  if (samples.size() != 1 || !samples.front() || !samples.front()->GetData()) {
    throw QELRuntimeError(
        QEL_TEXT("motion-JPEG decoder takes containers of one sample with data, this one has "
                 << samples.size() << " samples"));
  }
  return samples.front();
}

// The stream is the decoder's, whichever field came: the channel tells them apart.
std::string NameOf(const ISample& sample) {
  const std::string stream = "motion-JPEG picture of stream \"" + sample.GetStreamId() + "\"";
  const ChannelInfoConstPtr info = sample.GetChannelInfo();
  return info && !info->GetChannels().empty()
             ? QEL_TEXT(stream << ", channel " << info->GetChannels().front() << ",")
             : stream;
}

// Decodes at the size and with the planes that serve all of the outputs.
YuvPictureConstPtr DecodePlanes(const IBuffer& encoded, const WantedOutputs& outputs) {
  JpegPicture jpeg({encoded.GetInnerBuffer(), encoded.GetDataSize()});
  const Size coded = jpeg.CodedSize();
  Size largest;
  auto planes = JpegPicture::Planes::Luma;
  for (const WantedOutput& output : outputs) {
    const Size size = output.size == Size{} ? coded : DecodeSize(coded, output.size);
    largest = {std::max(largest.width, size.width), std::max(largest.height, size.height)};
    if (PreferredPlanes(output.fourCC) != JpegPicture::Planes::Luma)
      planes = PreferredPlanes(output.fourCC);
  }
  return jpeg.Decode(largest, planes);
}

class MotionJpegDecoder : public IVideoDecoder {
 public:
  void SetInitConfig(ParametersCollectionInstanceConstPtr config) override {
    const FourCC fourCC = ReadOutputFourCC(config);
    const std::lock_guard<std::mutex> lock(stateAccess_);
    outputFourCC_ = fourCC;
  }

  void UpdateConfig(ParametersCollectionInstanceConstPtr config) override {
    const Size size = ReadOutputSize(config);
    const std::lock_guard<std::mutex> lock(stateAccess_);
    outputSize_ = size;
  }

  void DefineInput(InfoContainerConstPtr input, std::string) override {
    const InfoList infos = input ? input->GetInfoList() : InfoList();
    const std::lock_guard<std::mutex> lock(stateAccess_);
    track_ = infos.empty() ? nullptr : infos.front();
    input_ = std::move(input);
  }

  InfoContainerConstPtr GetDefinedInput(std::string) override {
    const std::lock_guard<std::mutex> lock(stateAccess_);
    return input_;
  }

  void PushSample(SampleContainerConstPtr container) override {
    const std::lock_guard<std::mutex> lock(stateAccess_);
    decoded_.reset();
    if (outputFourCC_ == FourCC_undefined)
      throw QELRuntimeError("motion-JPEG decoder was pushed a sample before SetInitConfig");
    if (!input_)
      throw QELRuntimeError("motion-JPEG decoder was pushed a sample before DefineInput");
    decoded_ = Decode(*OnlySample(container));
  }

  SampleContainerConstPtr GetSample() override {
    const std::lock_guard<std::mutex> lock(stateAccess_);
    return std::exchange(decoded_, nullptr);
  }

 private:
  SampleContainerConstPtr Decode(const ISample& sample) const {
    const BufferConstPtr encoded = sample.GetData();
    const YuvPictureConstPtr picture = SharedPictures::Instance().Get(
        track_, encoded, {outputSize_, outputFourCC_},
        [&encoded](const WantedOutputs& outputs) { return DecodePlanes(*encoded, outputs); });
    if (!picture->damage.empty())
      QEL_LOG(QEL_WARNING, NameOf(sample) << " is damaged: " << picture->damage);
    const Size size = outputSize_ == Size{} ? picture->codedSize : outputSize_;
    BufferConstPtr output = MakeOutputPicture(*picture, outputFourCC_, size);
    return CreateSampleContainer(
        CreateVideoSample(sample.GetInfo(), sample.GetChannelInfo(), std::move(output), size.width,
                          size.height, outputFourCC_),
        PackagingInfoConstPtr());
  }

  std::mutex stateAccess_;  // guards all below
  FourCC outputFourCC_ = FourCC_undefined;
  Size outputSize_;  // 0x0: the size of each picture
  InfoContainerConstPtr input_;
  InfoConstPtr track_;               // what all decoders of one track have in common
  SampleContainerConstPtr decoded_;  // what GetSample delivers next
};

}  // namespace

void RegisterMotionJpegDecoder() {
  using Prototype = ParametersCollectionPrototype;
  using Parameters = Prototype::ParameterMap;
  const auto noParameters = std::make_shared<Prototype>(Parameters{});
  RegisterElement("qel", "video.mjpeg",
                  {.factory = std::make_shared<ElementFactory<ElementFactoryType_VideoDecoder>>(
                       [](const auto&) { return std::make_shared<MotionJpegDecoder>(); }),
                   .manifest = noParameters->CreateInstance(),
                   .initConfig = std::make_shared<Prototype>(
                       Parameters{{kOutputFourCC, {Prototype::Type::FourCC, FourCC_I420}}}),
                   .updateConfig = std::make_shared<Prototype>(
                       Parameters{{kOutputWidth, {Prototype::Type::Int64, int64_t{0}}},
                                  {kOutputHeight, {Prototype::Type::Int64, int64_t{0}}}})});
}

}  // namespace qel
