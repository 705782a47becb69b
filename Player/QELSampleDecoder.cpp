#include "Player/QELSampleDecoder.h"

#include <chrono>
#include <stdexcept>
#include <string>
#include <tuple>

#include "Player/HostLog.h"
#include "logging/LoggingManager.h"

namespace Moravel::Player {

namespace {

using orl::mv::logging::ILogger;
using Clock = std::chrono::steady_clock;

constexpr const char* kDecoderImplementation = "qel";
constexpr const char* kDecoderType = "video.mjpeg";

constexpr int kTopChannel = 0;
constexpr int kBottomChannel = 1;

// What an order asks for: the channel, or none when it names no field.
struct WantedField {
  explicit WantedField(const DecodeOrder& order)
      : top(order.decodeTopField_), bottom(!order.decodeTopField_ && order.isInterlace_) {}

  bool Matches(int channel) const {
    return (top && channel == kTopChannel) || (bottom && channel == kBottomChannel);
  }

  bool top;
  bool bottom;
};

// The first sample of the wanted field; samples behind it are not looked at.
qel::SampleConstPtr FindSample(const qel::SampleContainerConstPtr& container,
                               const WantedField& wanted) {
  if (!container)
    return nullptr;
  for (const qel::SampleConstPtr& sample : container->GetAllSamples()) {
    if (!sample || !sample->GetData())
      continue;
    const qel::ChannelInfoConstPtr channelInfo = sample->GetChannelInfo();
    qel::CheckPointer(channelInfo, "channelInfo");
    const qel::ChannelsList channels = channelInfo->GetChannels();
    QEL_CHECK_CONDITION(channels.size() == 1,
                        "Encoded sample must have 1 channel. It has " << channels.size());
    if (wanted.Matches(channels.front()))
      return sample;
  }
  return nullptr;
}

int64_t MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

}  // namespace

QELSampleDecoder::QELSampleDecoder()
    : logger_(orl::mv::logging::LoggingManager::GetLoggerPtr("QELSampleDecoder")) {}

QELSampleDecoder::~QELSampleDecoder() = default;

void QELSampleDecoder::SetDecoder(QELDecoder decoder) {
  qel::CheckPointer(decoder.first, "decoder");
  ready_ = false;
  decoderElement_ = std::move(decoder);
  adapter_.Init(decoderElement_.first->GetDefinedInput(""));
  ready_ = true;
}

void QELSampleDecoder::InitJPEGDecoder(qel::MediaSourcePtr sourceElement, QELDecoder& qelDecoder,
                                       qel::FourCC decoderOutput) {
  const auto decoderConfigProto = qel::GetInitConfigPrototype(qel::ElementFactoryType_VideoDecoder,
                                                              kDecoderImplementation, kDecoderType);
  qel::CheckPointer(decoderConfigProto, "GetInitConfigPrototype failed (VideoDecoder)");
  const auto decoderConfig = qel::CreateParametersCollectionInstance(decoderConfigProto);
  decoderConfig->SetParamFourCC("OutputFourCC", decoderOutput);

  qel::CheckPointer(sourceElement, "sourceElement");
  const auto demuxerDefinedOutput = sourceElement->GetDefinedOutput("");
  qel::CheckPointer(demuxerDefinedOutput, "demuxerDefinedOutput");
  const qel::VideoInfoList videoInfoList = demuxerDefinedOutput->GetVideoInfoList();
  if (videoInfoList.empty())
    throw std::runtime_error("VideoInfoList is empty, cannot InitJPEGDecoder");
  const qel::VideoInfoConstPtr& videoInfo = videoInfoList.front();
  qel::CheckPointer(videoInfo, "videoInfo");

  const auto [decoderElement, decoderControl, asynchronousControl] =
      qel::ImplementElement<qel::ElementFactoryType_VideoDecoder>(
          kDecoderImplementation, kDecoderType, qel::StepConstPtr());
  qel::CheckPointer(decoderElement, "decoderElement");
  decoderElement->SetInitConfig(decoderConfig);
  const auto videoInfoContainer = qel::CreateInfoContainer(videoInfo, qel::PackagingInfoConstPtr());
  decoderElement->DefineInput(videoInfoContainer, "");
  qelDecoder.first = decoderElement;
  qelDecoder.second = decoderControl;
}

ISample* QELSampleDecoder::Decode(const DecodeOrder& order) {
  const Clock::time_point now = Clock::now();
  const auto* const encodedQEL = dynamic_cast<const QELSample*>(order.toDecode_);
  if (encodedQEL == nullptr) {
    PLAYER_LOG(logger_, ILogger::Level_Warning,
               "Could not dynamic_cast encoded sample to QELSample*");
    return nullptr;
  }
  const WantedField wanted(order);
  const qel::SampleConstPtr chosen = FindSample(encodedQEL->GetContainer(), wanted);
  if (!chosen) {
    PLAYER_LOG(logger_, ILogger::Level_Warning,
               "Could not find sample with valid channel in sample container: cannot decode");
    return nullptr;
  }
  qel::SampleContainerConstPtr containerToDecode =
      qel::CreateSampleContainer(chosen, qel::PackagingInfoConstPtr());
  const qel::MediaFilterPtr decoderElement = decoderElement_.first;
  qel::CheckPointer(decoderElement, "decoderElement");
  qel::CheckCondition(ready_, "decoder is ready");
  containerToDecode = adapter_.ConvertSampleContainer(containerToDecode);

  auto [decoded, unexpected] = Exchange(*decoderElement, containerToDecode);
  if (unexpected) {
    PLAYER_LOG(logger_, ILogger::Level_Warning, "GetSample should return NULL on the second call");
    unexpected.reset();
  }
  auto decodedQEL = std::make_unique<QELSample>();
  decodedQEL->SetContainer(decoded);
  if (!decoded || decoded->GetVideoSampleList({}, {}).empty()) {
    PLAYER_LOG(logger_, ILogger::Level_Error, "VideoSampleList is empty after decoding");
    return nullptr;
  }
  Time::TimePoint tp;
  Time::TimePoint dur;
  order.GenerateTimePointAndDuration(tp, dur);
  decodedQEL->SetTimePoint(tp);
  decodedQEL->SetDuration(dur);
  if (wanted.bottom)
    decodedQEL->SetBottomField(true);
  if (Takes(logger_, ILogger::Level_Trace)) {
    const int64_t elapsed = MillisecondsSince(now);
    PLAYER_LOG(logger_, ILogger::Level_Trace,
               "Decoded " << (wanted.bottom ? "bottom" : "top") << " sample at "
                          << decodedQEL->GetTimePoint() << " of duration "
                          << decodedQEL->GetDuration().ToDurationString() << " in " << elapsed
                          << " ms");
  }
  return decodedQEL.release();
}

QELSampleDecoder::Pulled QELSampleDecoder::Exchange(
    qel::IMediaFilter& decoderElement, const qel::SampleContainerConstPtr& containerToDecode) {
  const std::lock_guard<std::mutex> lock(exchangeAccess_);
  decoderElement.PushSample(containerToDecode);
  qel::SampleContainerConstPtr picture = decoderElement.GetSample();
  qel::SampleContainerConstPtr unexpected = decoderElement.GetSample();
  return {std::move(picture), std::move(unexpected)};
}

}  // namespace Moravel::Player
