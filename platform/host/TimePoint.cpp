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

void CheckParts(const char* what, int64_t a, int64_t b) {
  if (a <= 0 || b <= 0)
    QEL_RAISE(what << a << "/" << b << ": both parts must be positive");
}

// What is printed of a time: its sign, whole seconds and microseconds, all in whole numbers.
struct Printed {
  explicit Printed(int64_t ticks) : sign(ticks < 0 ? "-" : "") {
    const Wide magnitude = ticks < 0 ? -Wide(ticks) : Wide(ticks);
    const auto whole =
        static_cast<int64_t>(magnitude * kMicrosecondsPerSecond / TimePoint::kTicksPerSecond);
    seconds = whole / kMicrosecondsPerSecond;
    microseconds = whole % kMicrosecondsPerSecond;
  }

  const char* sign;
  long long seconds;
  long long microseconds;
};

}  // namespace

TimePoint& TimePoint::FromRatio(uint64_t count, uint64_t a, uint64_t b) {
  const auto units = static_cast<int64_t>(count);
  const auto numerator = static_cast<int64_t>(a);
  const auto denominator = static_cast<int64_t>(b);
  CheckParts("time unit ", numerator, denominator);
  Wide product = 0;
  if (__builtin_mul_overflow(Wide(units) * numerator, Wide(kTicksPerSecond), &product))
    QEL_RAISE("time is out of range");
  ticks_ = Narrow(-FloorDivide(-product, denominator), "time");
  return *this;
}

int64_t TimePoint::SampleNumber(const Ratio& rate) const {
  CheckParts("sample rate ", rate.Numerator(), rate.Denominator());
  if (rate.Numerator() > Wide(rate.Denominator()) * kTicksPerSecond) {
    QEL_RAISE("sample rate " << rate.Numerator() << "/" << rate.Denominator() << ": more than "
                             << kTicksPerSecond << " a second");
  }
  return Narrow(
      FloorDivide(Wide(ticks_) * rate.Numerator(), Wide(rate.Denominator()) * kTicksPerSecond),
      "sample number");
}

std::string TimePoint::ToDurationString() const {
  const Printed printed(ticks_);
  char text[48];
  std::snprintf(text, sizeof text, "%s%lld.%06lld s", printed.sign, printed.seconds,
                printed.microseconds);
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
  const Printed printed(time.ticks_);
  char text[48];
  std::snprintf(text, sizeof text, "%s%02lld:%02lld:%02lld.%06lld", printed.sign,
                printed.seconds / 3600, printed.seconds / 60 % 60, printed.seconds % 60,
                printed.microseconds);
  return stream << text;
}

}  // namespace Moravel::Time
