#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "qel/Export.h"

namespace qel {

// Edit units per second: numerator / denominator. Not reduced, not validated.
struct EditRate {
  EditRate(uint32_t numerator, uint32_t denominator)
      : _numerator(numerator), _denominator(denominator) {}

  bool operator==(const EditRate&) const = default;

  uint32_t _numerator;
  uint32_t _denominator;
};

class QEL_API IClockInfo {
 public:
  virtual ~IClockInfo() = default;
};
using ClockInfoPtr = std::shared_ptr<IClockInfo>;

// A time as a count of edit units of a rate, with the clock that it belongs to (may be empty).
class MediaTime {
 public:
  MediaTime(const EditRate& editRate, int64_t timeNumber, ClockInfoPtr clockInfo)
      : editRate_(editRate), timeNumber_(timeNumber), clockInfo_(std::move(clockInfo)) {}

  int64_t GetTimeNumber() const { return timeNumber_; }
  const EditRate& GetEditRate() const { return editRate_; }
  const ClockInfoPtr& GetClockInfo() const { return clockInfo_; }

 private:
  EditRate editRate_;
  int64_t timeNumber_;
  ClockInfoPtr clockInfo_;
};

// A start and a duration, the duration counted in edit units of the start's rate.
class TimeLimits {
 public:
  TimeLimits(MediaTime startTime, int64_t durationNumber)
      : startTime_(std::move(startTime)), durationNumber_(durationNumber) {}

  const MediaTime& GetStartTime() const { return startTime_; }
  int64_t GetDurationNumber() const { return durationNumber_; }

 private:
  MediaTime startTime_;
  int64_t durationNumber_;
};

}  // namespace qel
