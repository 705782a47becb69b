#include "elements/storage/SamplePlaces.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "elements/storage/TrackIndex.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

void SamplePlaces::Add(int64_t offset, uint32_t size, int64_t count) {
  if (count <= 0)
    return;
  if (count > kMaxIndexEntries - count_) {
    throw QELRuntimeError(
        QEL_TEXT("the index has more than the " << kMaxIndexEntries << " samples that are read"));
  }
  if (count > 1 && firsts_.empty()) {
    firsts_.resize(offsets_.size());
    std::iota(firsts_.begin(), firsts_.end(), 0);
  }
  if (count > 1 || !firsts_.empty())
    firsts_.push_back(count_);
  offsets_.push_back(std::clamp<int64_t>(offset, 0, kMaxFileOffset));
  sizes_.push_back(size);
  count_ += count;
  emptyCount_ += size == 0 ? count : 0;
}

void SamplePlaces::Show(std::vector<ShownRange> ranges, int64_t count) {
  shown_ = std::move(ranges);
  shownCount_ = count;
}

void SamplePlaces::Compact() {
  firsts_.shrink_to_fit();
  offsets_.shrink_to_fit();
  sizes_.shrink_to_fit();
}

int64_t SamplePlaces::Stored(int64_t number) const {
  if (shown_.empty())
    return number;
  const auto next = std::upper_bound(shown_.begin(), shown_.end(), number,
                                     [](int64_t n, const auto& range) { return n < range.first; });
  const ShownRange& range = *std::prev(next);
  return range.stored + (number - range.first);
}

SamplePlaces::Place SamplePlaces::At(int64_t number) const {
  number = Stored(number);
  if (firsts_.empty())
    return {offsets_[static_cast<size_t>(number)], sizes_[static_cast<size_t>(number)]};
  const auto next = std::upper_bound(firsts_.begin(), firsts_.end(), number);
  const auto run = static_cast<size_t>(next - firsts_.begin() - 1);
  return {offsets_[run] + (number - firsts_[run]) * sizes_[run], sizes_[run]};
}

int64_t SamplePlaces::NextRun(int64_t number) const {
  if (firsts_.empty())
    return number + 1;
  const int64_t stored = Stored(number);
  const auto next = std::upper_bound(firsts_.begin(), firsts_.end(), stored);
  const int64_t left = (next == firsts_.end() ? count_ : *next) - stored;
  const auto range = std::upper_bound(shown_.begin(), shown_.end(), number,
                                      [](int64_t n, const auto& r) { return n < r.first; });
  return std::min(number + left, range == shown_.end() ? Count() : range->first);
}

int64_t SamplePlaces::MemoryBytes() const {
  return static_cast<int64_t>(
      firsts_.capacity() * sizeof(int64_t) + offsets_.capacity() * sizeof(int64_t) +
      sizes_.capacity() * sizeof(uint32_t) + shown_.capacity() * sizeof(ShownRange));
}

}  // namespace qel
