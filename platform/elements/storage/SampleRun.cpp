#include "elements/storage/SampleRun.h"

#include <algorithm>
#include <cstring>

#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr int64_t kMaxRunBytes = int64_t{1} << 30;
// Bytes between two samples that are read and thrown away rather than asked around.
constexpr int64_t kMaxGapBytes = int64_t{1} << 20;
// Complete samples that nobody took, above which the server is made to wait.
constexpr int64_t kMaxCompleteBytes = int64_t{1} << 20;

}  // namespace

int64_t MaxSampleBytes(const TrackIndex& index) {
  return index.Facts().fieldOrder == FieldOrder::Progressive ? kMaxPictureBytes
                                                             : 2 * kMaxPictureBytes;
}

SampleRun::SampleRun(const TrackIndex& index, int64_t fileSize, int64_t first, int64_t maxSamples,
                     MemoryPool& pool)
    : index_(index),
      pool_(pool),
      range_(Place(first)),
      next_(first),
      arriving_(first),
      end_(Following(first)),
      position_(range_.offset) {
  Extend(fileSize, maxSamples);
}

// A sample's bytes with its chunk header, if there is one.
ByteRange SampleRun::Place(int64_t number) const {
  const TrackIndex::Sample sample = index_.At(number);
  const int64_t header = index_.isAvi ? TrackIndex::kAviChunkHeaderBytes : 0;
  return {sample.offset - header, header + sample.size};
}

// The next sample that has bytes.
int64_t SampleRun::Following(int64_t number) const {
  ++number;
  while (number < index_.Count() && index_.At(number).size == 0)
    ++number;
  return number;
}

void SampleRun::Extend(int64_t fileSize, int64_t maxSamples) {
  for (int64_t samples = 1; samples < maxSamples && end_ < index_.Count(); ++samples) {
    const ByteRange place = Place(end_);
    if (place.size > MaxSampleBytes(index_) || place.offset < range_.End() ||
        place.offset - range_.End() > kMaxGapBytes || place.End() > fileSize ||
        place.End() - range_.offset > kMaxRunBytes)
      break;
    range_.size = place.End() - range_.offset;
    end_ = Following(end_);
  }
}

bool SampleRun::Take(std::span<const uint8_t> bytes) {
  if (completeBytes_ >= kMaxCompleteBytes)
    return false;
  while (!bytes.empty() && arriving_ != end_)
    bytes = bytes.subspan(TakePart(bytes));
  return true;
}

// Takes bytes up to the end of a gap or of a sample.
size_t SampleRun::TakePart(std::span<const uint8_t> bytes) {
  const ByteRange place = Place(arriving_);
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
    complete_.push_back(std::move(buffer_));
    completeBytes_ += place.size;
    arriving_ = Following(arriving_);
  }
  return count;
}

void SampleRun::CheckChunkHeader(const uint8_t* header, uint32_t size) const {
  const bool isStream = header[0] == '0' + index_.streamNumber / 10 &&
                        header[1] == '0' + index_.streamNumber % 10 && header[2] == 'd' &&
                        (header[3] == 'c' || header[3] == 'b');
  const uint32_t length = uint32_t{header[4]} | uint32_t{header[5]} << 8 |
                          uint32_t{header[6]} << 16 | uint32_t{header[7]} << 24;
  if (isStream && length == size)
    return;
  throw QELRuntimeError(QEL_TEXT("the index does not match the file: no video chunk of "
                                 << size << " bytes at byte " << Place(next_).offset));
}

SampleBytes SampleRun::TakeSample() {
  const uint32_t size = index_.At(next_).size;
  SampleBytes sample;
  sample.memory = std::move(complete_.front());
  complete_.pop_front();
  completeBytes_ -= Place(next_).size;
  const uint8_t* payload = sample.memory.get();
  if (index_.isAvi) {
    CheckChunkHeader(payload, size);
    payload += TrackIndex::kAviChunkHeaderBytes;
  }
  sample.payload = {payload, size};
  next_ = Following(next_);
  return sample;
}

}  // namespace qel
