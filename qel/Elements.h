#pragma once

#include <memory>
#include <string>
#include <tuple>

#include "qel/Export.h"
#include "qel/Infos.h"
#include "qel/MediaTime.h"
#include "qel/Parameters.h"
#include "qel/Samples.h"

// The faces of framework elements. An element is used by one thread at a time unless it says
// otherwise.
//
// Errors of elements: one that cannot do what it is asked throws QELRuntimeError with a message
// that names what failed, with what and why, and does not log it: whoever catches it knows whether
// it matters. What is delivered all the same (a damaged picture) gets one warning line. After a
// failure the element serves the next call as if the failed one had not been made. In particular,
// after a push that failed there is nothing to pull, neither of that sample nor of an earlier one,
// and nothing of it shows in later pictures.
namespace qel {

class QEL_API IBasicControl {
 public:
  virtual ~IBasicControl() = default;

  // Carries out what the keys set in `config` ask for.
  virtual void UpdateConfig(ParametersCollectionInstanceConstPtr config) = 0;
};

class QEL_API ISourceControl : public IBasicControl {
 public:
  // The next GetSample delivers the sample of `stream` whose interval contains `time`, or nothing
  // when there is none. Returns where that sample starts; a time outside the track as it is.
  virtual MediaTime GotoTimeOffset(const MediaTime& time, std::string stream) = 0;
};
using SourceControlPtr = std::shared_ptr<ISourceControl>;

class QEL_API IVideoDecoderControl : public IBasicControl {};
using VideoDecoderControlPtr = std::shared_ptr<IVideoDecoderControl>;

// Spelled as the framework spells it.
class QEL_API IAsyncrhonousControl {
 public:
  virtual ~IAsyncrhonousControl() = default;
};
using AsynchronousControlPtr = std::shared_ptr<IAsyncrhonousControl>;

// The data side of a source. Configured once, before anything else.
class QEL_API IMediaSource {
 public:
  virtual ~IMediaSource() = default;

  virtual void SetInitConfig(ParametersCollectionInstanceConstPtr config) = 0;
  // The streams that the source delivers, empty while they are not known. `name` tells outputs
  // apart where there are several; empty for the only one.
  virtual InfoContainerConstPtr GetDefinedOutput(std::string name) = 0;
  // The next container, empty when there is none at that time. A container whose first sample has
  // no data counts as none. A failure to read is an error, never an empty handle.
  virtual SampleContainerConstPtr GetSample() = 0;
};
using MediaSourcePtr = std::shared_ptr<IMediaSource>;

// The data side of an element that turns containers into containers. Order of calls: SetInitConfig,
// DefineInput, then for each container PushSample and GetSample until it comes back empty.
class QEL_API IMediaFilter {
 public:
  virtual ~IMediaFilter() = default;

  virtual void SetInitConfig(ParametersCollectionInstanceConstPtr config) = 0;
  // The stream of what is pushed from now on: one info.
  virtual void DefineInput(InfoContainerConstPtr input, std::string name) = 0;
  // What DefineInput was given last, empty before.
  virtual InfoContainerConstPtr GetDefinedInput(std::string name) = 0;
  // Takes one sample of the stream defined, and decodes it before it returns.
  virtual void PushSample(SampleContainerConstPtr container) = 0;
  // The next output, empty when the element holds no more.
  virtual SampleContainerConstPtr GetSample() = 0;
};
using MediaFilterPtr = std::shared_ptr<IMediaFilter>;

// Whole elements, as their factories make them.
class QEL_API ISource : public IMediaSource, public ISourceControl, public IAsyncrhonousControl {};
using SourcePtr = std::shared_ptr<ISource>;

class QEL_API IVideoDecoder : public IMediaFilter,
                              public IVideoDecoderControl,
                              public IAsyncrhonousControl {};
using VideoDecoderPtr = std::shared_ptr<IVideoDecoder>;

// A step of a workflow that an element belongs to; empty for elements that stand alone.
class QEL_API IStep {
 public:
  virtual ~IStep() = default;
};
using StepConstPtr = std::shared_ptr<const IStep>;

// Takes an element apart into its sides: media, control, and asynchronous control. All three are
// shares of one element.
template <typename MediaSide, typename Control>
using SeparatedElementControl = std::tuple<MediaSide, Control, AsynchronousControlPtr>;
using SourceInstance = SeparatedElementControl<MediaSourcePtr, SourceControlPtr>;
using VideoDecoderInstance = SeparatedElementControl<MediaFilterPtr, VideoDecoderControlPtr>;
QEL_API SourceInstance CreateWrapper(std::shared_ptr<ISource> element,
                                     std::shared_ptr<const IStep> step);
QEL_API VideoDecoderInstance CreateWrapper(std::shared_ptr<IVideoDecoder> element,
                                           std::shared_ptr<const IStep> step);

}  // namespace qel
