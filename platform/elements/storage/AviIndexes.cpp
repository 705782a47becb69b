#include "elements/storage/AviIndexes.h"

#include <algorithm>
#include <array>
#include <optional>

#include "elements/storage/ByteReader.h"
#include "elements/storage/TrackIndex.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr int64_t kOldEntryBytes = 16;
constexpr uint8_t kIndexOfIndexes = 0;
constexpr uint8_t kIndexOfChunks = 1;

}  // namespace

void AviIndexes::Add(int64_t payload, uint32_t size) {
  const bool hasPicture = places.Count() > 0 && places.At(places.Count() - 1).size != 0;
  if (size == 0 && hasPicture) {
    times.Extend(1);
    return;
  }
  places.Add(payload, size);
  times.Add(1, 1);
}

bool AviIndexes::IsOfStream(const std::string& name) const {
  return name[0] == '0' + stream_ / 10 && name[1] == '0' + stream_ % 10 && name[2] == 'd' &&
         (name[3] == 'c' || name[3] == 'b');
}

void AviIndexes::ReadOpenDml(std::span<const uint8_t> index) {
  constexpr size_t kHead = 24;
  if (index.size() < kHead)
    return;
  ByteReader reader(index, "index");
  reader.Skip(3);
  const uint8_t type = reader.Byte();
  const uint32_t count = reader.Little32();
  if (type == kIndexOfChunks)
    ReadEntries(index);
  else if (type == kIndexOfIndexes)
    ReadIndexOfIndexes(index.subspan(kHead), count);
}

void AviIndexes::ReadIndexOfIndexes(std::span<const uint8_t> entries, uint32_t count) {
  constexpr size_t kEntry = 16;
  ByteReader reader(entries, "index");
  std::vector<FileRange> parts;
  std::string problem;
  for (uint32_t i = 0; i < count; ++i) {
    if (reader.Left() < kEntry) {
      problem = QEL_TEXT("the index has " << i << " of its " << count << " parts");
      break;
    }
    const uint64_t offset = reader.Little64();
    const int64_t size = reader.Little32();
    reader.Skip(4);
    if (offset + kChunkHeaderBytes > static_cast<uint64_t>(file_.Size()) ||
        offset > INT64_MAX / 2) {
      problem =
          QEL_TEXT("part " << i + 1 << " of the index's " << count << " is said to lie at byte "
                           << offset << ", behind the end of the file");
      break;
    }
    const auto begin = static_cast<int64_t>(offset);
    parts.push_back({begin, begin + std::max(size, kChunkHeaderBytes)});
  }
  file_.FetchAll(parts);
  for (const FileRange& part : parts)
    ReadIndexChunk(part.offset);
  if (!problem.empty())
    problems_.push_back(problem);
}

void AviIndexes::ReadIndexChunk(int64_t offset) {
  std::array<uint8_t, kChunkHeaderBytes> header{};
  file_.ReadExactly(offset, header);
  ByteReader reader(header, "index");
  const std::string name = reader.Name();
  const int64_t content = offset + kChunkHeaderBytes;
  const int64_t length = std::min<int64_t>(reader.Little32(), file_.Size() - content);
  if (!name.starts_with("ix") && !name.ends_with("ix")) {
    problems_.push_back(QEL_TEXT("no part of the index is at byte " << offset));
    return;
  }
  entryBytes_ += length;
  if (entryBytes_ > file_.Size())
    throw QELRuntimeError("its index refers to the same bytes over and over");
  ReadEntries(file_.Content(content, length));
}

// Entries of the fields of a picture have a third number, where the second field lies in it.
void AviIndexes::ReadEntries(std::span<const uint8_t> index) {
  constexpr uint32_t kSizeBits = 0x7FFFFFFF;  // the highest one marks what is no key frame
  constexpr size_t kHead = 24;
  if (index.size() < kHead)
    return;
  ByteReader reader(index, "index");
  const size_t entryBytes = size_t{reader.Little16()} * 4;
  reader.Skip(2);
  const uint32_t count = reader.Little32();
  reader.Skip(4);
  const uint64_t base = reader.Little64();
  reader.Skip(4);
  if (entryBytes < 8 || base > static_cast<uint64_t>(file_.Size())) {
    problems_.push_back("a part of the index is damaged");
    return;
  }
  const size_t held = std::min<size_t>(count, reader.Left() / entryBytes);
  if (held < count)
    problems_.push_back(
        QEL_TEXT("a part of the index has " << held << " of its " << count << " entries"));
  for (size_t i = 0; i < held; ++i) {
    ByteReader entry(reader.Take(entryBytes), "index");
    const int64_t offset = static_cast<int64_t>(base) + entry.Little32();
    Add(offset, entry.Little32() & kSizeBits);
  }
}

// Where the chunk is that the entry names, tells what its offset counts from.
int64_t AviIndexes::FindBase(const OldEntry& entry, int64_t movi) {
  for (const int64_t base : {movi, int64_t{0}}) {
    std::array<uint8_t, kChunkHeaderBytes> header{};
    if (base + entry.offset + kChunkHeaderBytes > file_.Size())
      continue;
    file_.ReadExactly(base + entry.offset, header);
    ByteReader reader(header, "chunk header");
    if (reader.Name() == entry.name && reader.Little32() == entry.size)
      return base;
  }
  return entry.offset < movi ? movi : 0;
}

void AviIndexes::ReadOld(int64_t offset, int64_t size, int64_t movi) {
  constexpr int64_t kEntriesAtOnce = int64_t{1} << 18;
  AviIndexes old(file_, stream_);
  std::optional<int64_t> base;
  std::vector<uint8_t> bytes;
  for (int64_t left = size / kOldEntryBytes; left > 0; left -= kEntriesAtOnce) {
    bytes.resize(static_cast<size_t>(std::min(left, kEntriesAtOnce) * kOldEntryBytes));
    file_.Read(offset, bytes);
    offset += static_cast<int64_t>(bytes.size());
    ByteReader reader(bytes, "index");
    while (reader.Left() > 0) {
      OldEntry entry{reader.Name(), 0, 0};
      reader.Skip(4);
      entry.offset = reader.Little32();
      entry.size = reader.Little32();
      if (!IsOfStream(entry.name))
        continue;
      if (!base && entry.size != 0)
        base = FindBase(entry, movi);
      old.Add(base.value_or(0) + entry.offset + kChunkHeaderBytes, entry.size);
    }
  }
  if (old.Chunks() <= Chunks())
    return;
  places = std::move(old.places);
  times = std::move(old.times);
}

}  // namespace qel
