#include "elements/storage/SampleBlock.h"

#include <algorithm>
#include <cstring>

#include "elements/storage/FileFault.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr int64_t kMaxRangeBytes = int64_t{1} << 30;
// Complete samples that nobody took, above which the server is made to wait.
constexpr int64_t kMaxCompleteBytes = int64_t{1} << 20;

}  // namespace

int64_t MaxSampleBytes(const TrackIndex& index) {
  return index.Facts().fieldOrder == FieldOrder::Progressive ? kMaxPictureBytes
                                                             : 2 * kMaxPictureBytes;
}

ByteRange SampleBlock::Place(const TrackIndex& index, int64_t number) {
  const TrackIndex::Sample sample = index.At(number);
  const int64_t header = index.ChunkHeaderBytes();
  return {sample.offset - header, header + sample.size};
}

int64_t SampleBlock::Stored(const TrackIndex& index, int64_t number, int64_t step) {
  while (number >= 0 && number < index.Count() && index.At(number).size == 0)
    number += step;
  return number;
}

bool SampleBlock::LieTogether(const TrackIndex& index, int64_t number, int64_t next, int64_t gap) {
  const ByteRange a = Place(index, std::min(number, next));
  const ByteRange b = Place(index, std::max(number, next));
  return b.offset >= a.End() && b.offset - a.End() <= gap;
}

SampleBlock::SampleBlock(const TrackIndex& index, const SampleSeries& series,
                         const BlockLimits& limits, MemoryPool& pool)
    : index_(index),
      pool_(pool),
      step_(series.step),
      range_(Place(index, series.first)),
      numbers_{series.first},
      wantedBytes_(range_.size),
      largest_(range_.size) {
  for (int64_t i = 1; i < series.count; ++i) {
    const int64_t number = Stored(index, End(), step_);
    if (number < 0 || number >= index.Count() ||
        !LieTogether(index, numbers_.back(), number, limits.gap))
      break;
    const ByteRange place = Place(index, number);
    const int64_t begin = std::min(range_.offset, place.offset);
    const int64_t end = std::max(range_.End(), place.End());
    if (place.size > MaxSampleBytes(index) || begin < 0 || end > limits.fileSize ||
        end - begin > kMaxRangeBytes || BytesWith(place.size) > limits.bytes)
      break;
    range_ = {begin, end - begin};
    numbers_.push_back(number);
    wantedBytes_ += place.size;
    largest_ = std::max(largest_, place.size);
  }
  samples_.resize(numbers_.size());
  position_ = range_.offset;
}

// With another sample.
int64_t SampleBlock::BytesWith(int64_t size) const {
  const int64_t all = wantedBytes_ + size;
  return step_ < 0 ? all : std::min(all, kMaxCompleteBytes + std::max(largest_, size));
}

int64_t SampleBlock::BytesLeft() const {
  return Left() == 0 ? 0 : range_.End() - Place(index_, Next()).offset;
}

bool SampleBlock::HoldsNoMore() const {
  if (step_ < 0 || numbers_.size() == 1)
    return false;
  return !hasBegun_ || completeBytes_ >= kMaxCompleteBytes;
}

bool SampleBlock::Take(std::span<const uint8_t> bytes) {
  if (HoldsNoMore())
    return false;
  while (!bytes.empty() && arrived_ != numbers_.size())
    bytes = bytes.subspan(TakePart(bytes));
  return true;
}

// The place in the series of the sample whose bytes come now.
size_t SampleBlock::Arriving() const {
  return step_ < 0 ? numbers_.size() - 1 - arrived_ : arrived_;
}

// Takes bytes up to the end of a gap or of a sample.
size_t SampleBlock::TakePart(std::span<const uint8_t> bytes) {
  const ByteRange place = Place(index_, numbers_[Arriving()]);
  const bool isGap = position_ < place.offset;
  const int64_t partEnd = isGap ? place.offset : place.End();
  const auto count =
      static_cast<size_t>(std::min(partEnd - position_, static_cast<int64_t>(bytes.size())));
  if (!isGap) {
    if (!buffer_)
      buffer_ = pool_.Take(static_cast<size_t>(place.size));
    std::memcpy(buffer_.get() + (position_ - place.offset), bytes.data(), count);
  }
  position_ += static_cast<int64_t>(count);
  if (position_ == place.End()) {
    samples_[Arriving()] = std::move(buffer_);
    completeBytes_ += place.size;
    ++arrived_;
  }
  return count;
}

void SampleBlock::CheckChunkHeader(const uint8_t* header, int64_t size) const {
  const bool isStream = header[0] == '0' + index_.StreamNumber() / 10 &&
                        header[1] == '0' + index_.StreamNumber() % 10 && header[2] == 'd' &&
                        (header[3] == 'c' || header[3] == 'b');
  const uint32_t length = uint32_t{header[4]} | uint32_t{header[5]} << 8 |
                          uint32_t{header[6]} << 16 | uint32_t{header[7]} << 24;
  if (isStream && length == size)
    return;
  throw FileFaultError(QEL_TEXT("the index does not match the file: no video chunk of "
                                << size << " bytes at byte " << Place(index_, Next()).offset));
}

SampleBytes SampleBlock::TakeSample() {
  const TrackIndex::Sample place = index_.At(Next());
  SampleBytes sample;
  sample.memory = std::move(samples_[next_]);
  completeBytes_ -= Place(index_, Next()).size;
  const uint8_t* payload = sample.memory.get();
  if (index_.ChunkHeaderBytes() != 0) {
    CheckChunkHeader(payload, place.chunkSize);
    payload += index_.ChunkHeaderBytes();
  }
  sample.payload = {payload, static_cast<size_t>(place.size)};
  ++next_;
  return sample;
}

}  // namespace qel
