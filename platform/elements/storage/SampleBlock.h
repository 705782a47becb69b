#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

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

// Samples at a constant distance, forward or backward.
struct SampleSeries {
  int64_t first;
  int64_t step;
  int64_t count;
};

// What a block may take at most.
struct BlockLimits {
  int64_t fileSize;
  int64_t gap;    // bytes between two samples that are read and thrown away
  int64_t bytes;  // of memory; one sample is always allowed
};

// Cuts one range of a file into the samples that are wanted of it, each in a buffer of its own, as
// the bytes arrive. They are given in the order of the series, which may be against that of the
// file. Not thread-safe.
class SampleBlock : public IRangeReceiver {
 public:
  // As many samples of the series as lie together in the file; the first one has bytes. The index
  // and the pool outlive the block.
  SampleBlock(const TrackIndex& index, const SampleSeries& series, const BlockLimits& limits,
              MemoryPool& pool);

  const ByteRange& Range() const { return range_; }
  int64_t Step() const { return step_; }
  // The sample that TakeSample gives next, while there is one.
  int64_t Next() const { return numbers_[next_]; }
  int64_t Left() const { return static_cast<int64_t>(numbers_.size() - next_); }
  // Of the range, up to its end from the sample that TakeSample gives next; forward.
  int64_t BytesLeft() const;
  // Where the series goes on behind the block.
  int64_t End() const { return numbers_.back() + step_; }
  // Of memory, that it may come to hold before it is read from, and while it is.
  int64_t Bytes() const { return BytesWith(0); }

  // From now on the reader waits for this block. One in the file's order holds no more than what
  // is read next; until then it holds nothing.
  void Begin() { hasBegun_ = true; }

  bool Take(std::span<const uint8_t> bytes) override;
  bool HasEnough() const override { return Left() != 0 && samples_[next_]; }
  // There is one when HasEnough. Throws QELRuntimeError when the file does not hold at that place
  // what the index says.
  SampleBytes TakeSample();

  // Where a sample's bytes are, with its chunk header if there is one.
  static ByteRange Place(const TrackIndex& index, int64_t number);
  // The first sample with bytes at or behind `number` in the series; outside of the index when
  // there is none.
  static int64_t Stored(const TrackIndex& index, int64_t number, int64_t step);
  // Whether a gap of that many bytes, or none, lies between two samples of one direction.
  static bool LieTogether(const TrackIndex& index, int64_t number, int64_t next, int64_t gap);

 private:
  int64_t BytesWith(int64_t size) const;
  bool HoldsNoMore() const;
  size_t Arriving() const;
  size_t TakePart(std::span<const uint8_t> bytes);
  void CheckChunkHeader(const uint8_t* header, int64_t size) const;

  const TrackIndex& index_;
  MemoryPool& pool_;
  const int64_t step_;
  ByteRange range_;
  std::vector<int64_t> numbers_;                     // in the order of the series
  std::vector<std::shared_ptr<uint8_t[]>> samples_;  // those that are complete and not taken
  int64_t wantedBytes_ = 0;                          // of all samples
  int64_t largest_ = 0;
  bool hasBegun_ = false;

  size_t next_ = 0;       // to be taken
  size_t arrived_ = 0;    // complete ones, in the order of the file
  int64_t position_ = 0;  // in the file, of the next byte to arrive
  std::shared_ptr<uint8_t[]> buffer_;
  int64_t completeBytes_ = 0;
};

}  // namespace qel
