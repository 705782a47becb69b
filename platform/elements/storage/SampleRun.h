#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <span>

#include "elements/MemoryPool.h"
#include "elements/storage/HttpTransfer.h"
#include "elements/storage/TrackIndex.h"

namespace qel {

// Larger pictures are taken by no decoder.
constexpr int64_t kMaxPictureBytes = int64_t{24} << 20;
// Larger samples of a track are not read: one picture, or two fields.
int64_t MaxSampleBytes(const TrackIndex& index);

// The stored bytes of one sample, without what the container puts around them.
struct SampleBytes {
  std::shared_ptr<const uint8_t[]> memory;
  std::span<const uint8_t> payload;
};

// Cuts one range of a file into the samples that lie in it, each in a buffer of its own, as the
// bytes arrive. What lies between samples is passed over. Not thread-safe.
class SampleRun : public IRangeReceiver {
 public:
  // Samples from `first` on, which is not empty, as far as they follow each other in the file, at
  // most `maxSamples` of them. The index outlives the run.
  SampleRun(const TrackIndex& index, int64_t fileSize, int64_t first, int64_t maxSamples,
            MemoryPool& pool);

  const ByteRange& Range() const { return range_; }
  // The sample that TakeSample gives next; the index's count after the last one.
  int64_t Next() const { return next_; }
  bool IsAtEnd() const { return next_ == end_; }

  bool Take(std::span<const uint8_t> bytes) override;
  bool HasEnough() const override { return !complete_.empty(); }
  // There is one when HasEnough. Throws QELRuntimeError when the file does not hold at that place
  // what the index says.
  SampleBytes TakeSample();

 private:
  ByteRange Place(int64_t number) const;
  int64_t Following(int64_t number) const;
  void Extend(int64_t fileSize, int64_t maxSamples);
  size_t TakePart(std::span<const uint8_t> bytes);
  void CheckChunkHeader(const uint8_t* header, uint32_t size) const;

  const TrackIndex& index_;
  MemoryPool& pool_;
  ByteRange range_;
  int64_t next_;      // to be taken
  int64_t arriving_;  // whose bytes come now
  int64_t end_;       // behind the last sample of the run
  int64_t position_;  // in the file, of the next byte to arrive
  std::shared_ptr<uint8_t[]> buffer_;
  std::deque<std::shared_ptr<uint8_t[]>> complete_;
  int64_t completeBytes_ = 0;
};

}  // namespace qel
