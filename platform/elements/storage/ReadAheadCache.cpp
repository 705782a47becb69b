#include "elements/storage/ReadAheadCache.h"

#include <algorithm>
#include <cstring>

#include "elements/storage/TrackIndex.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr int64_t kFirstReadAhead = int64_t{16} << 10;
constexpr int64_t kMaxReadAhead = int64_t{4} << 20;

}  // namespace

std::span<const uint8_t> ReadAheadCache::Held(int64_t offset) const {
  auto block = blocks_.upper_bound(offset);
  if (block == blocks_.begin())
    return {};
  --block;
  const auto inside = static_cast<size_t>(offset - block->first);
  if (inside >= block->second.size())
    return {};
  return std::span<const uint8_t>(block->second).subspan(inside);
}

void ReadAheadCache::Count(int64_t bytes) {
  bytes_ += bytes;
  if (bytes_ > kMaxIndexBytes) {
    throw QELRuntimeError(QEL_TEXT("the index takes more than the "
                                   << kMaxIndexBytes << " bytes that are read of a file for it"));
  }
}

void ReadAheadCache::FetchMissing(int64_t offset, int64_t end) {
  Count(end - offset);
  std::vector<uint8_t> block(static_cast<size_t>(end - offset));
  file_.ReadAt(offset, block);
  lastEnd_ = end;
  blocks_.emplace(offset, std::move(block));
}

void ReadAheadCache::Fetch(int64_t offset, int64_t end) {
  end = std::min(end, Size());
  while (offset < end) {
    if (const auto held = Held(offset); !held.empty()) {
      offset += static_cast<int64_t>(held.size());
      continue;
    }
    const auto next = blocks_.upper_bound(offset);
    const int64_t missingEnd = next == blocks_.end() ? end : std::min(end, next->first);
    FetchMissing(offset, missingEnd);
    offset = missingEnd;
  }
}

std::span<const uint8_t> ReadAheadCache::At(int64_t offset) {
  if (offset < 0 || offset >= Size())
    return {};
  if (const auto held = Held(offset); !held.empty())
    return held;
  readAhead_ = offset == lastEnd_ ? std::min(readAhead_ * 2, kMaxReadAhead) : 0;
  readAhead_ = std::max(readAhead_, kFirstReadAhead);
  const auto next = blocks_.upper_bound(offset);
  const int64_t end = next == blocks_.end() ? Size() : next->first;
  FetchMissing(offset, std::min(offset + readAhead_, end));
  return Held(offset);
}

void ReadAheadCache::Read(int64_t offset, std::span<uint8_t> bytes) {
  const auto held = Held(offset);
  const size_t count = std::min(held.size(), bytes.size());
  std::copy_n(held.begin(), count, bytes.begin());
  bytes = bytes.subspan(count);
  offset += static_cast<int64_t>(count);
  if (bytes.empty())
    return;
  if (offset > Size() - static_cast<int64_t>(bytes.size()) || !Held(offset).empty()) {
    ReadExactly(offset, bytes);
    return;
  }
  Count(static_cast<int64_t>(bytes.size()));
  file_.ReadAt(offset, bytes);
}

void ReadAheadCache::ReadExactly(int64_t offset, std::span<uint8_t> bytes) {
  while (!bytes.empty()) {
    const auto there = At(offset);
    if (there.empty()) {
      throw QELRuntimeError(QEL_TEXT("the file is truncated: it ends at byte "
                                     << Size() << ", and " << bytes.size()
                                     << " more are wanted at byte " << offset));
    }
    const size_t count = std::min(there.size(), bytes.size());
    std::memcpy(bytes.data(), there.data(), count);
    bytes = bytes.subspan(count);
    offset += static_cast<int64_t>(count);
  }
}

}  // namespace qel
