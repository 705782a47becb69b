#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string>

#include "qel/Export.h"

namespace Moravel::Time {

// Units per second as numerator / denominator. Not reduced, not validated.
class Ratio {
 public:
  Ratio() = default;
  Ratio(int64_t numerator, int64_t denominator)
      : numerator_(numerator), denominator_(denominator) {}

  int64_t Numerator() const { return numerator_; }
  int64_t Denominator() const { return denominator_; }

  bool operator==(const Ratio&) const = default;

 private:
  int64_t numerator_ = 0;
  int64_t denominator_ = 1;
};

// A time, or a span of time, as a count of ticks of 1/705,600,000 second: a period of every
// broadcast rate (24, 25, 30, 50, 60, 120 and their 1000/1001 relatives) is a whole number of
// them, so that times of samples are exact. A value; zero at first.
//
// For every rate u/d that is accepted and every n whose time is in range,
// FromRatio(n, d, u).SampleNumber({u, d}) is n. Refused with qel::QELRuntimeError are a rate or a
// unit with a part that is zero or negative, a rate of more samples a second than there are ticks
// (two of them had one time), and a result out of range: times reach 414 years to either side of
// zero.
class QEL_API TimePoint {
 public:
  static constexpr int64_t kTicksPerSecond = 705'600'000;

  TimePoint() = default;

  // Sets the time to `count` units of a/b seconds each, rounded up to a tick (so that it lies
  // within the period of its own sample), and returns *this. A unit may be shorter than a tick. A
  // count of 2^63 and above stands for the negative number of the same bits.
  TimePoint& FromRatio(uint64_t count, uint64_t a, uint64_t b);

  // The number of the sample of `rate` in whose period the time lies (the first sample is 0).
  int64_t SampleNumber(const Ratio& rate) const;

  // As seconds, for a span: "0.040000 s". What is less than a microsecond is cut off.
  std::string ToDurationString() const;

  TimePoint operator-(const TimePoint& other) const;
  TimePoint operator+(const TimePoint& other) const;
  auto operator<=>(const TimePoint&) const = default;

  friend QEL_API std::ostream& operator<<(std::ostream& stream, const TimePoint& time);

 private:
  int64_t ticks_ = 0;
};

// As hours, minutes and seconds: "00:00:04.040000". What is less than a microsecond is cut off.
QEL_API std::ostream& operator<<(std::ostream& stream, const TimePoint& time);

}  // namespace Moravel::Time
