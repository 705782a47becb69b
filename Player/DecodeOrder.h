#pragma once

#include <cstdint>

#include "Player/CacheUpdateQueue.h"
#include "Player/ISample.h"
#include "Player/SampleRate.h"
#include "Time/TimePoint.h"
#include "qel/Export.h"

namespace Moravel::Player {

// Turn one encoded sample, or one field of it, into a picture.
//
// What to decode            decodeTopField_  isInterlace_
// progressive frame         true             false
// top field                 true             true
// bottom field              false            true
//
// width_ and height_ choose a decoder of QELMultiResDecoder; the size of the picture is the one
// that the decoder's element was configured for.
class QEL_API DecodeOrder {
 public:
  virtual ~DecodeOrder() = default;

  // The time and duration of the picture. A progressive frame has those of the order and of the
  // encoded sample. A field lasts one period of the field rate; the bottom field follows the top
  // field of the same frame by that period.
  void GenerateTimePointAndDuration(Time::TimePoint& tp, Time::TimePoint& dur) const {
    if (!isInterlace_) {
      tp = orderTp_;
      dur = toDecode_->GetDuration();
      return;
    }
    // Unsigned, as FromRatio takes it: the number behind the last one wraps around.
    const uint64_t fieldNumber =
        static_cast<uint64_t>(orderTp_.SampleNumber(fieldSampleRate_)) + (decodeTopField_ ? 0 : 1);
    const auto a = static_cast<uint64_t>(fieldSampleRate_.Denominator());
    const auto b = static_cast<uint64_t>(fieldSampleRate_.Numerator());
    tp.FromRatio(fieldNumber, a, b);
    Time::TimePoint out;
    out.FromRatio(fieldNumber + 1, a, b);
    dur = out - tp;
  }

  ISample* toDecode_ = nullptr;        // borrowed while the order runs: a QELSample as preloaded
  Time::TimePoint orderTp_;            // of the frame, also when one of its fields is wanted
  CacheUpdateQueue* queue_ = nullptr;  // the host's own; not used for decoding
  bool decodeTopField_ = false;        // the top field, or the frame of progressive material
  bool isInterlace_ = false;
  SampleRate fieldSampleRate_;  // fields per second of interlaced material: twice the frames
  int32_t width_ = 0;
  int32_t height_ = 0;
};

}  // namespace Moravel::Player
