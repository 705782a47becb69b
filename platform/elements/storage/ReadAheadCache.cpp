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

// Makes room for what is not there yet, which is to be read into the parts.
void ReadAheadCache::AddMissing(FileRange range, std::vector<FilePart>& parts) {
  range.end = std::min(range.end, Size());
  while (range.offset < range.end) {
    if (const auto held = Held(range.offset); !held.empty()) {
      range.offset += static_cast<int64_t>(held.size());
      continue;
    }
    const auto next = blocks_.upper_bound(range.offset);
    const int64_t end = next == blocks_.end() ? range.end : std::min(range.end, next->first);
    Count(end - range.offset);
    std::vector<uint8_t> block(static_cast<size_t>(end - range.offset));
    parts.push_back({range.offset, block});
    blocks_.emplace(range.offset, std::move(block));
    range.offset = end;
  }
}

void ReadAheadCache::Fetch(int64_t offset, int64_t end) {
  std::vector<FilePart> parts;
  AddMissing({offset, end}, parts);
  file_.ReadAll(parts);
  lastEnd_ = end;
}

void ReadAheadCache::FetchAll(std::span<const FileRange> ranges) {
  for (auto range = ranges.begin(); range != ranges.end();) {
    std::vector<FilePart> parts;
    for (int64_t bytes = 0; range != ranges.end() && bytes < kMaxReadAhead; ++range) {
      const int64_t size = range->end - range->offset;
      if (size > kMaxReadAhead)
        continue;
      AddMissing(*range, parts);
      bytes += size;
    }
    file_.ReadAll(parts);
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
  Fetch(offset, std::min(offset + readAhead_, end));
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

std::vector<uint8_t> ReadAheadCache::Content(int64_t offset, int64_t size) {
  std::vector<uint8_t> content;
  while (static_cast<int64_t>(content.size()) < size) {
    const auto have = static_cast<int64_t>(content.size());
    const int64_t more = std::min(size - have, std::max(have, kMaxReadAhead));
    content.resize(static_cast<size_t>(have + more));
    Read(offset + have, std::span(content).last(static_cast<size_t>(more)));
  }
  return content;
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
