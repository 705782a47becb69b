#include "Time/TimePoint.h"

#include <cstdio>
#include <ostream>

#include "qel/WorkflowStepImplementation.h"

namespace Moravel::Time {

namespace {

// Products of a count and two parts of a rate need more than 64 bits.
__extension__ using Wide = __int128;

constexpr int64_t kMicrosecondsPerSecond = 1'000'000;

Wide FloorDivide(Wide a, Wide b) {
  return a / b - (a % b < 0 ? 1 : 0);
}

int64_t Narrow(Wide value, const char* what) {
  if (value < INT64_MIN || value > INT64_MAX)
    QEL_RAISE(what << " is out of range");
  return static_cast<int64_t>(value);
}

// Microseconds in whole numbers: a nearby double would print 0.039999.
int64_t ToMicroseconds(int64_t ticks) {
  return static_cast<int64_t>(
      FloorDivide(Wide(ticks) * kMicrosecondsPerSecond, TimePoint::kTicksPerSecond));
}

}  // namespace

TimePoint& TimePoint::FromRatio(uint64_t count, uint64_t a, uint64_t b) {
  const auto units = static_cast<int64_t>(count);
  const auto numerator = static_cast<int64_t>(a);
  const auto denominator = static_cast<int64_t>(b);
  if (numerator <= 0 || denominator <= 0)
    QEL_RAISE("time unit " << numerator << "/" << denominator << " s: both parts must be positive");
  Wide product = 0;
  if (__builtin_mul_overflow(Wide(units) * numerator, Wide(kTicksPerSecond), &product))
    QEL_RAISE("time is out of range");
  ticks_ = Narrow(-FloorDivide(-product, denominator), "time");
  return *this;
}

int64_t TimePoint::SampleNumber(const Ratio& rate) const {
  if (rate.Numerator() <= 0 || rate.Denominator() <= 0) {
    QEL_RAISE("sample rate " << rate.Numerator() << "/" << rate.Denominator()
                             << ": both parts must be positive");
  }
  return Narrow(
      FloorDivide(Wide(ticks_) * rate.Numerator(), Wide(rate.Denominator()) * kTicksPerSecond),
      "sample number");
}

std::string TimePoint::ToDurationString() const {
  const int64_t microseconds = ToMicroseconds(ticks_);
  const int64_t magnitude = microseconds < 0 ? -microseconds : microseconds;
  char text[48];
  std::snprintf(text, sizeof text, "%s%lld.%06lld s", microseconds < 0 ? "-" : "",
                static_cast<long long>(magnitude / kMicrosecondsPerSecond),
                static_cast<long long>(magnitude % kMicrosecondsPerSecond));
  return text;
}

TimePoint TimePoint::operator-(const TimePoint& other) const {
  TimePoint difference;
  difference.ticks_ = Narrow(Wide(ticks_) - other.ticks_, "time");
  return difference;
}

TimePoint TimePoint::operator+(const TimePoint& other) const {
  TimePoint sum;
  sum.ticks_ = Narrow(Wide(ticks_) + other.ticks_, "time");
  return sum;
}

std::ostream& operator<<(std::ostream& stream, const TimePoint& time) {
  const TimePoint zero;
  const bool negative = time < zero;
  const int64_t whole = (negative ? zero - time : time).SampleNumber(Ratio(1'000'000, 1));
  const long long seconds = whole / kMicrosecondsPerSecond;
  char text[48];
  std::snprintf(text, sizeof text, "%s%02lld:%02lld:%02lld.%06lld", negative ? "-" : "",
                seconds / 3600, seconds / 60 % 60, seconds % 60,
                static_cast<long long>(whole % kMicrosecondsPerSecond));
  return stream << text;
}

}  // namespace Moravel::Time
