#include "elements/storage/SampleTimes.h"

#include <algorithm>

#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

__extension__ using WideTime = __int128;

constexpr int64_t kLastTime = INT64_MAX / 2;

}  // namespace

void SampleTimes::Add(int64_t count, int64_t duration) {
  if (count <= 0)
    return;
  if (duration < 0 || WideTime{count} * duration > kLastTime - end_)
    throw QELRuntimeError("its sample times are damaged: they run beyond what can be counted");
  if (runs_.empty() || runs_.back().duration != duration)
    runs_.push_back({count_, end_, duration});
  count_ += count;
  end_ += count * duration;
}

void SampleTimes::Extend(int64_t duration) {
  const int64_t longer = Duration(count_ - 1) + duration;
  --count_;
  end_ = Start(count_);
  if (runs_.back().first == count_)
    runs_.pop_back();
  Add(1, longer);
}

int64_t SampleTimes::Start(int64_t number) const {
  if (number >= count_ && runs_.empty())
    return 0;
  const auto next = std::upper_bound(runs_.begin(), runs_.end(), number,
                                     [](int64_t n, const Run& run) { return n < run.first; });
  const Run& run = *std::prev(next);
  return run.start + (number - run.first) * run.duration;
}

int64_t SampleTimes::Find(int64_t time) const {
  if (time < 0 || time >= end_)
    return -1;
  const auto next = std::upper_bound(runs_.begin(), runs_.end(), time,
                                     [](int64_t t, const Run& run) { return t < run.start; });
  const Run& run = *std::prev(next);  // not one of empty intervals: the next begins where it does
  return run.first + (time - run.start) / run.duration;
}

}  // namespace qel
