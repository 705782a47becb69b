#include <array>
#include <memory>

#include "FuzzTarget.h"
#include "elements/BuiltinElements.h"
#include "qel/WorkflowStepImplementation.h"
#include "qelCore/Infos.h"
#include "qelCore/LoggerWriter.h"
#include "qelCore/Samples.h"
#include "support/ClipMaker.h"

namespace {

constexpr auto kVideoDecoder = qel::ElementFactoryType_VideoDecoder;
constexpr std::array kFormats = {qel::FourCC_I420, qel::FourCC_BGRA, qel::FourCC_Y800,
                                 qel::FourCC_UYVY};
constexpr int kSmallSide = 40;

struct SilentWriter : qel::ILoggerWriter {
  void WriteLog(qel::LogLevel, const char*, const char*, const char*, const char*, const char*,
                const char*, const char*) override {}
};

qel::VideoDecoderInstance MakeElement(qel::FourCC format, int side) {
  const auto element = qel::ImplementElement<kVideoDecoder>("qel", "video.mjpeg", nullptr);
  const auto& [filter, control, asynchronous] = element;
  const auto init = qel::CreateParametersCollectionInstance(
      qel::GetInitConfigPrototype(kVideoDecoder, "qel", "video.mjpeg"));
  init->SetParamFourCC("OutputFourCC", format);
  filter->SetInitConfig(init);
  const auto update = qel::CreateParametersCollectionInstance(
      qel::GetUpdateConfigPrototype(kVideoDecoder, "qel", "video.mjpeg"));
  update->SetParamInt64("output_width", side);
  update->SetParamInt64("output_height", side);
  control->UpdateConfig(update);
  filter->DefineInput(
      qel::CreateInfoContainer(
          std::make_shared<qel::VideoInfo>("video", 64, 48, 1, qel::EditRate(25, 1)), nullptr),
      "");
  return element;
}

// One element for each format, at the size of the picture and at a small one.
const auto& Elements() {
  static const auto elements = [] {
    qel::SetCurrentLoggerWriter(std::make_shared<SilentWriter>());
    qel::RegisterBuiltinElements();
    std::vector<qel::VideoDecoderInstance> made;
    for (const qel::FourCC format : kFormats) {
      made.push_back(MakeElement(format, 0));
      made.push_back(MakeElement(format, kSmallSide));
    }
    return made;
  }();
  return elements;
}

}  // namespace

// The decoder element: the first byte chooses format and size, the others are the picture. A
// picture or an error comes out, never an earlier picture.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using Moravel::Fuzz::Require;
  const auto& elements = Elements();
  if (size == 0)
    return 0;
  const auto& filter = std::get<0>(elements[data[0] % elements.size()]);
  const auto info = filter->GetDefinedInput("")->GetInfoList().front();
  const auto buffer =
      std::make_shared<qel::BufferView>(nullptr, data + 1, static_cast<uint32_t>(size - 1));
  const auto sample = qel::CreateSample(info, qel::CreateChannelInfo(0), buffer);
  bool decoded = true;
  try {
    filter->PushSample(qel::CreateSampleContainer(sample, nullptr));
  } catch (const qel::QELRuntimeError&) {
    decoded = false;
  }
  const auto output = filter->GetSample();
  Require((output != nullptr) == decoded, "a picture or an error");
  Require(filter->GetSample() == nullptr, "one picture at most");
  return 0;
}

std::vector<Moravel::Fuzz::Input> Moravel::Fuzz::Seeds() {
  std::vector<Input> seeds;
  uint8_t choice = 0;
  for (const int subsampling : {TJSAMP_420, TJSAMP_422, TJSAMP_444, TJSAMP_440, TJSAMP_GRAY}) {
    for (const int width : {64, 33}) {
      const Input jpeg =
          Test::MakeJpeg({.width = width, .height = 47, .number = 5, .subsampling = subsampling});
      Input seed = {choice++};
      seed.insert(seed.end(), jpeg.begin(), jpeg.end());
      seeds.push_back(std::move(seed));
    }
  }
  return seeds;
}
