#pragma once

#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include "elements/BuiltinElements.h"
#include "qel/WorkflowStepImplementation.h"
#include "qelCore/SampleFactory.h"
#include "qelCore/StreamInfos.h"

namespace Moravel::Test {

inline qel::InfoConstPtr NewTrack() {
  return std::make_shared<qel::VideoInfo>("track", 64, 48, 100, qel::EditRate(25, 1));
}
inline qel::BufferConstPtr NewBuffer(std::vector<uint8_t> bytes) {
  const auto owner = std::make_shared<std::vector<uint8_t>>(std::move(bytes));
  return std::make_shared<qel::BufferView>(owner, owner->data(),
                                           static_cast<uint32_t>(owner->size()));
}

// A motion-JPEG decoder element as the host uses it: made by name, configured, defined.
struct TestDecoder {
  static constexpr auto kKind = qel::ElementFactoryType_VideoDecoder;

  explicit TestDecoder(qel::InfoConstPtr track = NewTrack(), qel::FourCC fourCC = qel::FourCC_I420,
                       int width = 0, int height = 0) {
    qel::RegisterBuiltinElements();
    std::tie(filter, control, std::ignore) =
        qel::ImplementElement<kKind>("qel", "video.mjpeg", nullptr);
    SetFormat(fourCC);
    SetOutputSize(width, height);
    filter->DefineInput(qel::CreateInfoContainer(std::move(track), nullptr), "");
  }
  void SetFormat(qel::FourCC fourCC) {
    const auto config = qel::GetInitConfigPrototype(kKind, "qel", "video.mjpeg")->CreateInstance();
    config->SetParamFourCC("OutputFourCC", fourCC);
    filter->SetInitConfig(config);
  }
  void SetOutputSize(int64_t width, int64_t height) {
    const auto config =
        qel::GetUpdateConfigPrototype(kKind, "qel", "video.mjpeg")->CreateInstance();
    config->SetParamInt64("output_width", width);
    config->SetParamInt64("output_height", height);
    control->UpdateConfig(config);
  }
  void Push(qel::BufferConstPtr encoded) {
    filter->PushSample(qel::CreateSampleContainer(
        qel::CreateSample(NewTrack(), qel::CreateChannelInfo(0), std::move(encoded)), nullptr));
  }
  // Pushes the picture and takes the one output of it.
  qel::VideoSampleConstPtr Decode(const qel::BufferConstPtr& encoded) {
    Push(encoded);
    return filter->GetSample()->GetVideoSampleList(nullptr, nullptr).at(0);
  }
  qel::VideoSampleConstPtr Decode(const std::vector<uint8_t>& jpeg) {
    return Decode(NewBuffer(jpeg));
  }

  qel::MediaFilterPtr filter;
  qel::VideoDecoderControlPtr control;
};

}  // namespace Moravel::Test
