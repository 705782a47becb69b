#pragma once

#include <mutex>
#include <utility>

#include "Player/Export.h"
#include "Player/ISampleDecoder.h"
#include "Player/QELSample.h"
#include "logging/ILogger.h"
#include "qel/Elements.h"
#include "qel/FourCC.h"
#include "qel/Infos.h"
#include "qel/Samples.h"
#include "qel/WorkflowStepImplementation.h"

namespace Moravel::Player {

// The two sides of one framework decoder element; it lives as long as some copy of the pair.
using QELDecoder = std::pair<qel::MediaFilterPtr, qel::VideoDecoderControlPtr>;

// Decodes motion-JPEG samples to one output resolution, with one framework decoder element.
//
// Order of calls: InitJPEGDecoder, construction, SetDecoder, then Decode from any threads.
// Construction, SetDecoder and destruction are never made while a Decode runs. Decodes that
// overlap take turns at the element and are parallel otherwise.
class MORAVEL_PLAYER_API QELSampleDecoder : public ISampleDecoder {
 public:
  // Re-describes encoded samples, which carry stream ids of their own, on the one stream that the
  // decoder element is set up for. Init is never called while ConvertSampleContainer runs;
  // conversions may run in parallel. A broken expectation is a QELRuntimeError and changes nothing.
  class AdapterForChangingStreamId {
   public:
    // `outputInfoContainer` holds exactly one info: the decoder's input stream.
    void Init(qel::InfoContainerConstPtr outputInfoContainer) {
      qel::CheckPointer(outputInfoContainer, "outputInfoContainer");
      const qel::InfoList infoList = outputInfoContainer->GetInfoList();
      qel::CheckCondition(infoList.size() == 1, "infoList size must be 1");
      qel::CheckPointer(infoList.front(), "info");
      _info = infoList.front();
    }

    // A new container of the same one sample, on the decoder's stream; the input is left alone.
    qel::SampleContainerConstPtr ConvertSampleContainer(
        qel::SampleContainerConstPtr inputSampleContainer) const {
      qel::CheckPointer(inputSampleContainer, "sample container");
      const qel::StreamIdToInfoMapPtr streamIdToInfoMap = qel::CreateStreamIdToInfoMap();
      const qel::SampleList inputSamples = inputSampleContainer->GetAllSamples();
      qel::CheckCondition(inputSamples.size() == 1, "inputSamples size must be 1");
      qel::CheckPointer(_info, "_info");
      for (const qel::SampleConstPtr& sample : inputSamples) {
        qel::CheckPointer(sample, "sample");
        streamIdToInfoMap->AddInfo(sample->GetStreamId(), _info);
      }
      return qel::DuplicateSampleContainer(inputSampleContainer, streamIdToInfoMap);
    }

   private:
    qel::InfoConstPtr _info;
  };

  QELSampleDecoder();
  ~QELSampleDecoder() override;

  // Builds a motion-JPEG decoder element for the first video stream of the source, with pictures of
  // the given format. Touches no object of this class; any thread. Throws std::runtime_error when
  // the source has no video, else what the framework throws; `qelDecoder` is then unchanged.
  static void InitJPEGDecoder(qel::MediaSourcePtr sourceElement, QELDecoder& qelDecoder,
                              qel::FourCC decoderOutput);

  // Installs an element whose input is defined. An empty filter is a QELRuntimeError and changes
  // nothing. When the element's input is not exactly one stream, the error leaves the decoder not
  // ready: Decode throws until a SetDecoder succeeds.
  void SetDecoder(QELDecoder decoder);

  // Decodes the field or frame of the order's sample. A picture of the order's time, or null (a
  // log line says why), or an exception: QELRuntimeError for a sample of several channels, a
  // decoder that is not ready or a picture that cannot be decoded; others as the framework and the
  // host throw them. The decoder serves the next order as before.
  ISample* Decode(const DecodeOrder& order) override;

 private:
  // One push, one pull for the picture and one that should come back empty.
  using Pulled = std::pair<qel::SampleContainerConstPtr, qel::SampleContainerConstPtr>;
  Pulled Exchange(qel::IMediaFilter& decoderElement,
                  const qel::SampleContainerConstPtr& containerToDecode);

  // Constant while decodes run.
  AdapterForChangingStreamId adapter_;
  QELDecoder decoderElement_;
  orl::mv::logging::ILogger* logger_;  // the host's, may be null
  bool ready_ = false;                 // the last SetDecoder succeeded

  std::mutex exchangeAccess_;  // held for a push and its two pulls, and for nothing else
};

}  // namespace Moravel::Player
