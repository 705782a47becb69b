#include "elements/storage/MovFragments.h"

#include <optional>

#include "elements/storage/ByteReader.h"
#include "elements/storage/MovBoxes.h"
#include "elements/storage/TrackIndex.h"

namespace qel {

namespace {

// Which numbers are there, in the order of their bits ("tfhd", "trun").
enum FragmentFlags : uint32_t {
  kBaseOffset = 0x1,
  kDescription = 0x2,
  kDefaultDuration = 0x8,
  kDefaultSize = 0x10,
};
enum RunFlags : uint32_t {
  kDataOffset = 0x1,
  kFirstSampleFlags = 0x4,
  kSampleDuration = 0x100,
  kSampleSize = 0x200,
  kSampleFlags = 0x400,
  kSampleOffset = 0x800,
};

// One track's part of a fragment ("traf").
class TrackFragment {
 public:
  TrackFragment(int64_t moofOffset, const FragmentDefaults& defaults, ContainerTrack& track)
      : base_(moofOffset), at_(moofOffset), defaults_(defaults), track_(track) {}

  void Read(std::span<const uint8_t> traf) {
    if (!TakeHeader(FindBox(traf, "tfhd")))
      return;
    TakeTime(FindBox(traf, "tfdt"));
    ForEachBox(traf, [this](const std::string& name, std::span<const uint8_t> content) {
      if (name == "trun")
        TakeRun(content);
    });
  }

 private:
  // False when it is another track's.
  bool TakeHeader(std::span<const uint8_t> tfhd) {
    ByteReader reader(tfhd, "fragment header");
    const uint32_t flags = reader.Big32();
    if (reader.Big32() != defaults_.trackId)
      return false;
    if (flags & kBaseOffset)
      base_ = at_ = static_cast<int64_t>(std::min<uint64_t>(reader.Big64(), kMaxFileOffset));
    if (flags & kDescription)
      reader.Skip(4);
    if (flags & kDefaultDuration)
      defaults_.duration = reader.Big32();
    if (flags & kDefaultSize)
      defaults_.size = reader.Big32();
    return true;
  }

  // Where the fragment begins; the sample before it lasts until then.
  void TakeTime(std::span<const uint8_t> tfdt) {
    if (tfdt.empty())
      return;
    ByteReader reader(tfdt, "fragment time");
    const bool isWide = reader.Byte() == 1;
    reader.Skip(kVersionBytes - 1);
    const uint64_t time = isWide ? reader.Big64() : reader.Big32();
    SampleTimes& times = track_.times;
    const auto end = static_cast<uint64_t>(times.Start(times.Count()));
    if (times.Count() > 0 && time > end && time < INT64_MAX / 4)
      times.Extend(static_cast<int64_t>(time - end));
  }

  void TakeRun(std::span<const uint8_t> trun) {
    ByteReader reader(trun, "fragment");
    const uint32_t flags = reader.Big32();
    const uint32_t count = reader.Big32();
    if (flags & kDataOffset)
      at_ = base_ + static_cast<int32_t>(reader.Big32());
    if (flags & kFirstSampleFlags)
      reader.Skip(4);
    if ((flags & (kSampleDuration | kSampleSize | kSampleFlags | kSampleOffset)) == 0) {
      Add(count, defaults_.size, defaults_.duration);
      return;
    }
    for (uint32_t i = 0; i < count; ++i) {
      const uint32_t duration = flags & kSampleDuration ? reader.Big32() : defaults_.duration;
      const uint32_t size = flags & kSampleSize ? reader.Big32() : defaults_.size;
      reader.Skip(((flags & kSampleFlags) ? 4 : 0) + ((flags & kSampleOffset) ? 4 : 0));
      Add(1, size, duration);
    }
  }

  void Add(int64_t count, uint32_t size, uint32_t duration) {
    track_.places.Add(at_, size, count);
    track_.times.Add(count, duration);
    at_ = std::min(at_ + count * int64_t{size}, kMaxFileOffset);
  }

  int64_t base_;
  int64_t at_;
  FragmentDefaults defaults_;
  ContainerTrack& track_;
};

}  // namespace

void AppendFragment(std::span<const uint8_t> moof, int64_t moofOffset,
                    const FragmentDefaults& defaults, ContainerTrack& track) {
  ForEachBox(moof, [&](const std::string& name, std::span<const uint8_t> content) {
    if (name == "traf")
      TrackFragment(moofOffset, defaults, track).Read(content);
  });
}

}  // namespace qel
