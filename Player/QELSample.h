#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "Player/Export.h"
#include "Player/ISample.h"
#include "Time/TimePoint.h"
#include "qel/MediaTime.h"
#include "qel/Samples.h"

namespace Moravel::Player {

// A host sample over one framework sample container, which it shares and never copies or changes.
// Its keys are the container's stream ids.
//
// One thread builds it with the setters and hands it on; from then on any thread may read it.
// Errors of the framework and of the host time library pass through.
class MORAVEL_PLAYER_API QELSample : public ISample {
 public:
  QELSample();
  ~QELSample() override;

  Time::TimePoint GetTimePoint() const override;
  Time::TimePoint GetDuration() const override;

  // The stream ids, and "bottom" for the bottom field of an interlaced frame.
  std::set<std::string> GetPropertyKeys() const override;
  // The stream ids of the framework samples that carry a buffer.
  std::set<std::string> GetDataKeys() const override;

  // Always null: a property is there or not, it has no bytes.
  const uint8_t* GetProperty(const std::string& key, uint64_t& size) const override;
  // The first buffer of that stream; the container keeps it alive.
  const uint8_t* GetData(const std::string& key, uint64_t& size) const override;

  void SetContainer(qel::SampleContainerConstPtr container);
  qel::SampleContainerConstPtr GetContainer() const;

  void SetTimePoint(const Time::TimePoint& tp);
  void SetDuration(const Time::TimePoint& dur);
  void SetTimePointAndDurationFromTimeLimits(qel::TimeLimits limits);
  void SetBottomField(bool bottom);

 private:
  qel::SampleContainerConstPtr container_;
  Time::TimePoint tp_;
  Time::TimePoint dur_;
  bool bottomSample_ = false;
};

}  // namespace Moravel::Player
