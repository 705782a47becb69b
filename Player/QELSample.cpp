#include "Player/QELSample.h"

#include <utility>

namespace Moravel::Player {

namespace {

const char* const kBottomProperty = "bottom";

// A count of edit units as a host time: units of denominator / numerator seconds each.
Time::TimePoint ToTimePoint(int64_t count, const qel::EditRate& rate) {
  return Time::TimePoint().FromRatio(static_cast<uint64_t>(count), rate._denominator,
                                     rate._numerator);
}

}  // namespace

QELSample::QELSample() = default;
QELSample::~QELSample() = default;

Time::TimePoint QELSample::GetTimePoint() const {
  return tp_;
}

Time::TimePoint QELSample::GetDuration() const {
  return dur_;
}

std::set<std::string> QELSample::GetPropertyKeys() const {
  std::set<std::string> keys = GetDataKeys();
  if (container_ && bottomSample_)
    keys.insert(kBottomProperty);
  return keys;
}

std::set<std::string> QELSample::GetDataKeys() const {
  std::set<std::string> keys;
  if (!container_)
    return keys;
  for (const qel::SampleConstPtr& sample : container_->GetAllSamples()) {
    if (sample && sample->GetData())
      keys.insert(sample->GetStreamId());
  }
  return keys;
}

const uint8_t* QELSample::GetProperty(const std::string&, uint64_t&) const {
  return nullptr;
}

const uint8_t* QELSample::GetData(const std::string& key, uint64_t& size) const {
  if (!container_)
    return nullptr;
  for (const qel::SampleConstPtr& sample : container_->GetAllSamples()) {
    if (!sample || sample->GetStreamId() != key)
      continue;
    if (const qel::BufferConstPtr buffer = sample->GetData()) {
      size = buffer->GetInnerBufferSize();
      return buffer->GetInnerBuffer();
    }
  }
  return nullptr;
}

void QELSample::SetContainer(qel::SampleContainerConstPtr container) {
  container_ = std::move(container);
}

qel::SampleContainerConstPtr QELSample::GetContainer() const {
  return container_;
}

void QELSample::SetTimePoint(const Time::TimePoint& tp) {
  tp_ = tp;
}

void QELSample::SetDuration(const Time::TimePoint& dur) {
  dur_ = dur;
}

void QELSample::SetTimePointAndDurationFromTimeLimits(qel::TimeLimits limits) {
  const qel::MediaTime& start = limits.GetStartTime();
  SetTimePoint(ToTimePoint(start.GetTimeNumber(), start.GetEditRate()));
  SetDuration(ToTimePoint(limits.GetDurationNumber(), start.GetEditRate()));
}

void QELSample::SetBottomField(bool bottom) {
  bottomSample_ = bottom;
}

}  // namespace Moravel::Player
