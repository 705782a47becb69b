#include "playing/Statistics.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace Moravel::Play {

// Values below 32 have buckets of their own; above, the leading five bits tell the bucket.
size_t LatencyHistogram::BucketOf(uint64_t microseconds) {
  const auto width = static_cast<unsigned>(std::bit_width(microseconds));
  const unsigned shift = width > kSubBits + 1 ? width - kSubBits - 1 : 0;
  return (size_t(shift) << kSubBits) + (microseconds >> shift);
}

uint64_t LatencyHistogram::UpperEnd(size_t bucket) {
  if (bucket < size_t(2) << kSubBits)
    return bucket;
  const size_t shift = (bucket >> kSubBits) - 1;
  const uint64_t leading = bucket - (shift << kSubBits);
  return ((leading + 1) << shift) - 1;
}

void LatencyHistogram::Add(Clock::duration latency) {
  const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(latency).count();
  ++counts_[BucketOf(static_cast<uint64_t>(std::max<int64_t>(microseconds, 0)))];
  ++total_;
}

double LatencyHistogram::PercentileMilliseconds(double share) const {
  const auto wanted = static_cast<int64_t>(std::ceil(share * static_cast<double>(total_)));
  int64_t seen = 0;
  for (size_t bucket = 0; bucket < kBuckets; ++bucket) {
    seen += counts_[bucket];
    if (seen > 0 && seen >= wanted)
      return static_cast<double>(UpperEnd(bucket)) / 1000;
  }
  return 0;
}

}  // namespace Moravel::Play
