#include "elements/storage/MovTables.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "elements/storage/ByteReader.h"
#include "elements/storage/MovBoxes.h"
#include "elements/storage/TrackIndex.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

// The entries behind a table's own header, as many as it says.
std::span<const uint8_t> Entries(ByteReader& table, std::string_view name, uint64_t count,
                                 uint64_t bitsEach) {
  const uint64_t bytes = (count * bitsEach + 7) / 8;
  if (bytes > table.Left()) {
    throw QELRuntimeError(QEL_TEXT("the sample table \"" << name << "\" is damaged: " << count
                                                         << " entries do not fit into its "
                                                         << table.Left() << " bytes"));
  }
  return table.Take(static_cast<size_t>(bytes));
}

// A table of entries that are all of 32 bit numbers.
class Table {
 public:
  Table(std::span<const uint8_t> stbl, std::string_view name, uint64_t numbersEach)
      : reader_(Content(stbl, name, numbersEach, count_), name) {}

  bool HasNext() const { return reader_.Left() > 0; }
  uint32_t Number() { return reader_.Big32(); }
  uint32_t Count() const { return count_; }

 private:
  static std::span<const uint8_t> Content(std::span<const uint8_t> stbl, std::string_view name,
                                          uint64_t numbersEach, uint32_t& count) {
    const auto box = FindBox(stbl, name);
    if (box.size() < kVersionBytes + 4)
      return {};
    ByteReader reader(box, name);
    reader.Skip(kVersionBytes);
    count = reader.Big32();
    return Entries(reader, name, count, 32 * numbersEach);
  }

  uint32_t count_ = 0;
  ByteReader reader_;
};

// "stsz" or "stz2": one size for all, or 4 to 32 bits for each.
class SampleSizes {
 public:
  explicit SampleSizes(std::span<const uint8_t> stbl) {
    const auto plain = FindBox(stbl, "stsz");
    const auto compact = FindBox(stbl, "stz2");
    ByteReader reader(plain.empty() ? compact : plain, plain.empty() ? "stz2" : "stsz");
    reader.Skip(kVersionBytes);
    equal_ = plain.empty() ? 0 : reader.Big32();
    if (plain.empty())
      bits_ = reader.Big32() & 0xFF;
    count_ = reader.Big32();
    if (count_ > kMaxIndexEntries) {
      throw QELRuntimeError(QEL_TEXT("the file announces " << count_ << " samples, at most "
                                                           << kMaxIndexEntries << " are read"));
    }
    if (bits_ != 4 && bits_ != 8 && bits_ != 16 && bits_ != 32)
      throw QELRuntimeError(
          QEL_TEXT("the sample table \"stz2\" is damaged: sizes of " << bits_ << " bits"));
    if (equal_ == 0)
      entries_ = Entries(reader, plain.empty() ? "stz2" : "stsz", count_, bits_);
  }

  int64_t Count() const { return count_; }
  uint32_t Equal() const { return equal_; }  // 0: each has its own
  uint32_t At(int64_t number) const {
    if (bits_ == 4)
      return entries_[static_cast<size_t>(number / 2)] >> (number % 2 == 0 ? 4 : 0) & 0xF;
    const size_t bytes = bits_ / 8;
    uint32_t size = 0;
    for (const uint8_t byte : entries_.subspan(static_cast<size_t>(number) * bytes, bytes))
      size = size << 8 | byte;
    return size;
  }

 private:
  uint32_t equal_ = 0;
  uint32_t bits_ = 32;
  int64_t count_ = 0;
  std::span<const uint8_t> entries_;
};

// "stco" or "co64".
class ChunkOffsets {
 public:
  explicit ChunkOffsets(std::span<const uint8_t> stbl)
      : isWide_(FindBox(stbl, "stco").empty()),
        table_(stbl, isWide_ ? "co64" : "stco", isWide_ ? 2 : 1) {}
  bool HasNext() const { return table_.HasNext(); }
  int64_t Next() {
    uint64_t offset = table_.Number();
    if (isWide_)
      offset = offset << 32 | table_.Number();
    return static_cast<int64_t>(std::min<uint64_t>(offset, kMaxFileOffset));
  }

 private:
  const bool isWide_;
  Table table_;
};

// "stsc": how many samples each chunk has.
class ChunkLengths {
 public:
  explicit ChunkLengths(std::span<const uint8_t> stbl) : table_(stbl, "stsc", 3) { ReadNext(); }
  // Of the chunk with that number, which is one more than the last call's; the first is 1.
  uint32_t Of(uint32_t chunk) {
    while (hasNext_ && nextChunk_ <= chunk) {
      length_ = nextLength_;
      ReadNext();
    }
    return length_;
  }

 private:
  void ReadNext() {
    hasNext_ = table_.HasNext();
    if (!hasNext_)
      return;
    nextChunk_ = table_.Number();
    nextLength_ = table_.Number();
    table_.Number();  // which description
  }

  Table table_;
  bool hasNext_ = false;
  uint32_t nextChunk_ = 0;
  uint32_t nextLength_ = 0;
  uint32_t length_ = 0;
};

SamplePlaces ReadPlaces(std::span<const uint8_t> stbl, const SampleSizes& sizes) {
  SamplePlaces places;
  ChunkOffsets offsets(stbl);
  ChunkLengths lengths(stbl);
  for (uint32_t chunk = 1; offsets.HasNext() && places.Count() < sizes.Count(); ++chunk) {
    int64_t offset = offsets.Next();
    const int64_t count = std::min<int64_t>(lengths.Of(chunk), sizes.Count() - places.Count());
    if (sizes.Equal() != 0) {
      places.Add(offset, sizes.Equal(), count);
      continue;
    }
    for (int64_t i = 0; i < count; ++i) {
      const uint32_t size = sizes.At(places.Count());
      places.Add(offset, size);
      offset += size;
    }
  }
  return places;
}

// "stts". Samples that it has no time for last as long as the last one that it has.
SampleTimes ReadTimes(std::span<const uint8_t> stbl, int64_t samples) {
  Table table(stbl, "stts", 2);
  SampleTimes times;
  int64_t duration = 1;
  while (table.HasNext() && times.Count() < samples) {
    const int64_t count = std::min<int64_t>(table.Number(), samples - times.Count());
    const uint32_t value = table.Number();
    duration = value > INT32_MAX ? 1 : value;  // below zero in files of broken writers
    times.Add(count, duration);
  }
  times.Add(samples - times.Count(), duration);
  return times;
}

// The times with "ctts", by which samples are shown later than they are decoded; nothing when they
// would be shown in another order.
std::optional<SampleTimes> WithOffsets(const SampleTimes& times, std::span<const uint8_t> stbl) {
  Table table(stbl, "ctts", 2);
  SampleTimes shown;
  std::optional<int64_t> lastStart;
  const auto add = [&](int64_t start, int64_t count, int64_t duration) {
    if (lastStart && start < *lastStart)
      return false;
    if (lastStart)
      shown.Add(1, start - *lastStart);
    shown.Add(count - 1, duration);
    lastStart = start + (count - 1) * duration;
    return true;
  };
  size_t run = 0;
  int64_t number = 0;
  int64_t offset = 0;
  while (number < times.Count()) {
    int64_t end = times.Count();
    if (table.HasNext()) {
      end = std::min<int64_t>(end, number + table.Number());
      offset = static_cast<int32_t>(table.Number());
    }
    while (number < end) {
      while (times.RunEnd(run) <= number)
        ++run;
      const int64_t behind = std::min(end, times.RunEnd(run));
      if (!add(times.Start(number) + offset, behind - number, times.Runs()[run].duration))
        return std::nullopt;
      number = behind;
    }
  }
  if (lastStart)
    shown.Add(1, times.Duration(times.Count() - 1));
  return shown;
}

}  // namespace

MovTables ReadMovTables(std::span<const uint8_t> stbl) {
  MovTables tables;
  if (FindBox(stbl, "stsz").empty() && FindBox(stbl, "stz2").empty())
    return tables;
  const SampleSizes sizes(stbl);
  tables.announced = sizes.Count();
  tables.places = ReadPlaces(stbl, sizes);
  tables.times = ReadTimes(stbl, tables.places.Count());
  if (auto shown = WithOffsets(tables.times, stbl))
    tables.times = std::move(*shown);
  else
    tables.problems.push_back("its samples are to be shown in another order than they are stored");
  return tables;
}

}  // namespace qel
