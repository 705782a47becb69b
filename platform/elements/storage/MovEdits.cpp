#include "elements/storage/MovEdits.h"

#include <algorithm>
#include <vector>

#include "elements/storage/ByteReader.h"
#include "elements/storage/MovBoxes.h"
#include "elements/storage/TrackIndex.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

__extension__ using WideEdit = __int128;

struct Edit {
  int64_t duration;  // in the track's units; 0: to the end
  int64_t start;     // in the track's media; -1: nothing is shown
};

std::vector<Edit> ReadEdits(std::span<const uint8_t> elst, int64_t movieUnits, int64_t trackUnits) {
  std::vector<Edit> edits;
  if (elst.size() < kVersionBytes + 4 || movieUnits <= 0)
    return edits;
  ByteReader reader(elst, "edit list");
  const bool isWide = reader.Byte() == 1;
  reader.Skip(kVersionBytes - 1);
  const uint32_t count = reader.Big32();
  for (uint32_t i = 0; i < count && reader.Left() >= (isWide ? 20 : 12); ++i) {
    const uint64_t duration = isWide ? reader.Big64() : reader.Big32();
    const int64_t start =
        isWide ? static_cast<int64_t>(reader.Big64()) : static_cast<int32_t>(reader.Big32());
    reader.Skip(4);  // the rate, which players take as 1
    const WideEdit scaled = (WideEdit{duration} * trackUnits + movieUnits / 2) / movieUnits;
    edits.push_back({static_cast<int64_t>(std::min<WideEdit>(scaled, INT64_MAX / 4)), start});
  }
  return edits;
}

// The first sample that starts at a time or later.
int64_t FirstFrom(const SampleTimes& times, int64_t time) {
  int64_t low = 0;
  int64_t high = times.Count();
  while (low < high) {
    const int64_t middle = low + (high - low) / 2;
    if (times.Start(middle) < time)
      low = middle + 1;
    else
      high = middle;
  }
  return low;
}

// Puts ranges of a track's samples one behind the other.
class Assembly {
 public:
  explicit Assembly(const SampleTimes& media)
      : media_(media), maxRuns_(4 * media.Runs().size() + kFreeRuns) {}

  void Add(const Edit& edit) {
    if (edit.start < 0) {
      gap_ = std::min(gap_ + edit.duration, INT64_MAX / 4);
      return;
    }
    const int64_t mediaEnd = media_.Start(media_.Count());
    const int64_t end = edit.duration == 0 || edit.duration > mediaEnd - edit.start
                            ? mediaEnd
                            : edit.start + edit.duration;
    const int64_t first = FirstFrom(media_, edit.start);
    const int64_t behind = FirstFrom(media_, end);
    if (first >= behind) {
      gap_ = std::min(gap_ + std::max<int64_t>(end - edit.start, 0), INT64_MAX / 4);
      return;
    }
    if (times_.Count() > 0)
      times_.Extend(gap_ + media_.Start(first) - edit.start);
    gap_ = 0;
    shown_.push_back({times_.Count(), first});
    AddTimes(first, behind - 1);
    times_.Add(1, std::min(media_.Duration(behind - 1), end - media_.Start(behind - 1)));
  }

  void MoveInto(ContainerTrack& track) {
    if (times_.Count() == 0)
      return;
    const bool isWhole = shown_.size() == 1 && shown_[0].stored == 0;
    if (isWhole && times_.Count() == media_.Count())
      return;
    if (track.facts.timecode)
      track.facts.timecode->frame += shown_[0].stored;
    track.places.Show(std::move(shown_), times_.Count());
    track.times = std::move(times_);
  }

 private:
  static constexpr size_t kFreeRuns = 4096;

  void AddTimes(int64_t first, int64_t behind) {
    const auto& runs = media_.Runs();
    auto run =
        static_cast<size_t>(std::upper_bound(runs.begin(), runs.end(), first,
                                             [](int64_t n, const auto& r) { return n < r.first; }) -
                            runs.begin() - 1);
    for (; first < behind; ++run) {
      const int64_t end = std::min(behind, media_.RunEnd(run));
      times_.Add(end - first, runs[run].duration);
      first = end;
    }
    if (times_.Count() > kMaxIndexEntries || times_.Runs().size() > maxRuns_)
      throw QELRuntimeError("its edit list shows the same samples over and over");
  }

  const SampleTimes& media_;
  const size_t maxRuns_;
  SampleTimes times_;
  std::vector<SamplePlaces::ShownRange> shown_;
  int64_t gap_ = 0;
};

}  // namespace

void ApplyEdits(std::span<const uint8_t> elst, int64_t movieUnits, ContainerTrack& track) {
  Assembly assembly(track.times);
  for (const Edit& edit : ReadEdits(elst, movieUnits, track.timeUnits))
    assembly.Add(edit);
  assembly.MoveInto(track);
}

}  // namespace qel
