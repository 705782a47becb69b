#include "elements/storage/ReadAhead.h"

#include <algorithm>
#include <utility>

#include "elements/storage/FileFault.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr int64_t kMaxBlockSamples = 4096;
constexpr int64_t kLeastBlockSamples = 3;
// Bytes between neighbours that are read and thrown away rather than asked around: another
// stream's.
constexpr int64_t kNeighbourGap = int64_t{1} << 20;
// Bytes under way that keep any link busy. More forward would lie waiting, and a server does not
// wait for long.
constexpr int64_t kBusyBytes = int64_t{8} << 20;

}  // namespace

ReadAhead::ReadAhead(HttpFile& file, const TrackIndex& index, MemoryPool& pool)
    : file_(file), index_(index), pool_(pool) {}

std::optional<SampleBytes> ReadAhead::Read(int64_t number, const ReadAheadShare& share) {
  pattern_.Read(number);
  if (!pattern_.IsJog())
    Keep(0, {}, 0);
  if (index_.At(number).size == 0)
    return std::nullopt;
  try {
    const SampleBytes sample = ReadStored(number, share);
    if (pattern_.IsJog())
      Keep(number, sample, share.bytes / 2);
    return sample;
  } catch (...) {
    Stop();
    pattern_.Forget();
    throw;
  }
}

SampleBytes ReadAhead::ReadStored(int64_t number, const ReadAheadShare& share) {
  if (const auto kept = kept_.find(number); kept != kept_.end()) {
    AskAhead(number, share);
    return kept->second;
  }
  if (IsInBeginning(number)) {
    AskAhead(number, share);
    return TakeFromBeginning(number);
  }
  LeaveBeginning(number);
  Ask(number, share);
  AskAhead(number, share);
  return Await();
}

bool ReadAhead::IsInBeginning(int64_t number) const {
  return file_.HasBeginning() && number >= 0 && number < index_.Count() &&
         file_.BeginningHolds(SampleBlock::Place(index_, number));
}

// What it has of a sample that goes on behind it is let in: else its connection would be lost.
void ReadAhead::LeaveBeginning(int64_t number) {
  if (file_.HasBeginning() && SampleBlock::Place(index_, number).offset >= file_.BeginningBytes())
    file_.DropBeginning();
}

SampleBytes ReadAhead::TakeFromBeginning(int64_t number) {
  SampleBlock block(index_, {number, 1, 1}, Limits({0, 0}), pool_);
  block.Take(file_.Beginning(block.Range()));
  return block.TakeSample();
}

void ReadAhead::CheckPlace(int64_t number) const {
  const TrackIndex::Sample sample = index_.At(number);
  if (sample.size > MaxSampleBytes(index_)) {
    throw FileFaultError(QEL_TEXT("sample " << number << " of " << sample.size
                                            << " bytes is larger than the "
                                            << MaxSampleBytes(index_) << " that are read"));
  }
  const int64_t header = index_.ChunkHeaderBytes();
  if (sample.offset < header || sample.offset > file_.Size() - sample.size) {
    throw FileFaultError(QEL_TEXT("the file is truncated: sample " << number << " ends at byte "
                                                                   << sample.offset + sample.size
                                                                   << " of " << file_.Size()));
  }
}

// Sees to it that the first part begins with that sample.
void ReadAhead::Ask(int64_t number, const ReadAheadShare& share) {
  if (!parts_.empty()) {
    const Part& first = *parts_.front();
    const bool hasFailed = first.transfer->IsOver() && !first.block.HasEnough();
    if (hasFailed)
      pattern_.Doubt();
    if (hasFailed || first.block.Next() != number)
      StopParts();
  }
  if (!parts_.empty())
    return;
  CheckPlace(number);
  // Backward the sample would come last in its block.
  const int64_t step = pattern_.Step();
  const SampleSeries series{number, step, step > 0 ? 1 + pattern_.Ahead() : 1};
  Start(std::make_unique<Part>(index_, series, Limits(share), pool_));
}

// Sees to it that enough of what follows is under way.
void ReadAhead::AskAhead(int64_t number, const ReadAheadShare& share) {
  const int64_t step = pattern_.Step();
  if (step == 0)
    return;
  int64_t next = NextAhead(number);
  if (!parts_.empty() && parts_.front()->block.Step() != step &&
      parts_.front()->block.Next() != number) {
    if (kept_.contains(number + step))
      return;  // back and forth: these may still be wanted
    StopParts();
  }
  while (Transfers() < share.transfers) {
    int64_t wanted = pattern_.Ahead();
    int64_t bytesLeft = 0;
    for (const auto& part : parts_) {
      wanted -= part->block.Left();
      bytesLeft += part->block.BytesLeft();
    }
    if (step > 0 && bytesLeft > kBusyBytes)
      return;
    if (!parts_.empty() && parts_.front()->block.Next() == number)
      ++wanted;
    next = SampleBlock::Stored(index_, parts_.empty() ? next : parts_.back()->block.End(), step);
    if (next < 0 || next >= index_.Count() || wanted <= 0 || !IsBatch(next, wanted))
      return;
    const SampleSeries series{next, step, std::min(wanted, kMaxBlockSamples)};
    const BlockLimits limits = Limits(share);
    auto part = std::make_unique<Part>(index_, series, limits, pool_);
    if (part->block.Range().End() > limits.fileSize || part->block.Bytes() > limits.bytes)
      return;
    Start(std::move(part));
  }
}

// The first sample behind `number` that is not in memory.
int64_t ReadAhead::NextAhead(int64_t number) const {
  do {
    number += pattern_.Step();
  } while (kept_.contains(number) || IsInBeginning(number));
  return number;
}

BlockLimits ReadAhead::Limits(const ReadAheadShare& share) const {
  const int64_t worth = file_.GapWorthReading(kMaxReadAheadTransfers);
  const bool areNeighbours = pattern_.Step() == 1 || pattern_.Step() == -1;
  return {file_.Size(), areNeighbours ? std::max(worth, kNeighbourGap) : worth,
          share.bytes - Bytes()};
}

// Whether a request for so many samples is not too small: those that lie together share one.
// Forward a block is read while it arrives, so that two of them keep a connection busy; backward it
// is read when it is complete.
bool ReadAhead::IsBatch(int64_t number, int64_t samples) const {
  const int64_t step = pattern_.Step();
  const int64_t least = std::max(pattern_.Ahead() / (step > 0 ? 2 : 3), kLeastBlockSamples);
  const int64_t next = SampleBlock::Stored(index_, number + step, step);
  return samples >= least || next < 0 || next >= index_.Count() ||
         !SampleBlock::LieTogether(index_, number, next, Limits({0, 0}).gap);
}

void ReadAhead::Start(std::unique_ptr<Part> part) {
  part->transfer = file_.Start(part->block.Range(), part->block);
  parts_.push_back(std::move(part));
}

SampleBytes ReadAhead::Await() {
  Part& part = *parts_.front();
  part.block.Begin();
  part.transfer->Receive();
  SampleBytes sample = part.block.TakeSample();
  if (part.block.Left() == 0)
    parts_.pop_front();
  return sample;
}

void ReadAhead::StopParts() {
  parts_.clear();
}

void ReadAhead::Stop() {
  file_.DropBeginning();
  StopParts();
  Keep(0, {}, 0);
}

// Gives up the oldest ones where they are too many.
void ReadAhead::Keep(int64_t number, const SampleBytes& sample, int64_t maxBytes) {
  const auto size = static_cast<int64_t>(sample.payload.size());
  while (!keptOrder_.empty() && keptBytes_ + size > maxBytes) {
    const auto oldest = kept_.find(keptOrder_.front());
    keptBytes_ -= static_cast<int64_t>(oldest->second.payload.size());
    kept_.erase(oldest);
    keptOrder_.pop_front();
  }
  if (size == 0 || size > maxBytes || !kept_.emplace(number, sample).second)
    return;
  keptOrder_.push_back(number);
  keptBytes_ += size;
}

int64_t ReadAhead::Bytes() const {
  int64_t bytes = keptBytes_ + file_.BeginningBytes();
  for (const auto& part : parts_)
    bytes += part->block.Bytes();
  return bytes;
}

int ReadAhead::Transfers() const {
  const auto parts = std::count_if(parts_.begin(), parts_.end(),
                                   [](const auto& part) { return !part->transfer->IsOver(); });
  return static_cast<int>(parts) + (file_.IsBeginningUnderWay() ? 1 : 0);
}

}  // namespace qel
