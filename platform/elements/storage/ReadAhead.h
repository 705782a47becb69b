#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>

#include "elements/MemoryPool.h"
#include "elements/storage/HttpFile.h"
#include "elements/storage/ReadPattern.h"
#include "elements/storage/SampleBlock.h"

namespace qel {

// That one reader has under way.
constexpr int kMaxReadAheadTransfers = 24;

// What one reader may have at most; it always may have the sample that is read.
struct ReadAheadShare {
  int64_t bytes;  // of memory
  int transfers;  // under way
};

// Reads the samples of one file. A sample out of the blue is one request of exactly its bytes. From
// the third sample of a pattern on, those that follow in it are asked for before they are read:
// side by side on several connections, many in one request where they lie together, the more the
// longer the pattern goes on. They arrive while the reader waits for one of them, and in the
// kernel's buffers meanwhile. The first samples may have come with the file's beginning, which is
// given up when others are read. A reader that turns round gets what it was given a short while ago
// from memory. Used by one thread at a time.
//
// Failures are QELRuntimeError. What fails before it is read is asked for again when it is.
class ReadAhead {
 public:
  // The file is open; it, the index and the pool outlive this.
  ReadAhead(HttpFile& file, const TrackIndex& index, MemoryPool& pool);

  // The bytes of a sample, none of one that was dropped. After a failure nothing is under way.
  std::optional<SampleBytes> Read(int64_t number, const ReadAheadShare& share);
  // Ends all requests and gives up what was not read yet.
  void Stop();

  // What Stop would give up.
  int64_t Bytes() const;
  int Transfers() const;

 private:
  struct Part {
    Part(const TrackIndex& index, const SampleSeries& series, const BlockLimits& limits,
         MemoryPool& pool)
        : block(index, series, limits, pool) {}

    SampleBlock block;
    std::unique_ptr<HttpTransfer> transfer;  // into the block
  };

  SampleBytes ReadStored(int64_t number, const ReadAheadShare& share);
  void CheckPlace(int64_t number) const;
  void Ask(int64_t number, const ReadAheadShare& share);
  void AskAhead(int64_t number, const ReadAheadShare& share);
  bool IsInBeginning(int64_t number) const;
  void LeaveBeginning(int64_t number);
  SampleBytes TakeFromBeginning(int64_t number);
  int64_t NextAhead(int64_t number) const;
  bool IsBatch(int64_t number, int64_t samples) const;
  BlockLimits Limits(const ReadAheadShare& share) const;
  void Start(std::unique_ptr<Part> part);
  SampleBytes Await();
  void StopParts();
  void Keep(int64_t number, const SampleBytes& sample, int64_t maxBytes);

  HttpFile& file_;
  const TrackIndex& index_;
  MemoryPool& pool_;
  ReadPattern pattern_;
  std::deque<std::unique_ptr<Part>> parts_;  // in the order of the pattern

  // What was read a short while ago, for a reader that goes back and forth.
  std::map<int64_t, SampleBytes> kept_;
  std::deque<int64_t> keptOrder_;  // oldest first
  int64_t keptBytes_ = 0;
};

}  // namespace qel
