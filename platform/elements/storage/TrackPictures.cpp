#include "elements/storage/TrackPictures.h"

#include <algorithm>
#include <vector>

#include "elements/storage/JpegFields.h"
#include "elements/storage/TrackIndex.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr int64_t kFirstHeadBytes = 4096;
// How far into a picture its size is looked for: application segments can be long.
constexpr int64_t kMaxHeadBytes = int64_t{1} << 20;
// A sample that may hold two pictures is read whole.
constexpr int64_t kMaxWholeBytes = int64_t{16} << 20;
constexpr int kMaxLooks = 5;

struct Look {
  int64_t number;  // of the sample
  JpegFacts picture;
};

class PictureLooks {
 public:
  PictureLooks(ReadAheadCache& file, ContainerTrack& track)
      : file_(file), track_(track), facts_(track.facts) {}

  void Take() {
    const auto look = FirstReadable();
    TellTruncation();
    if (look && look->picture.width != 0)
      facts_.width = look->picture.width;
    const int64_t headerHeight = facts_.height;
    if (look && look->picture.height != 0)
      facts_.height = look->picture.height;
    if (facts_.width <= 0 || facts_.height <= 0)
      throw QELRuntimeError(
          "neither the file nor its first pictures say how large the pictures are");
    if (!look)
      return;
    if (!track_.hasPixelAspect)
      SetPixelAspect(track_, look->picture.pixelAspectWidth, look->picture.pixelAspectHeight);
    const bool isHalf = IsAboutHalf(look->picture.height, headerHeight);
    if (IsMarked(look->picture) || track_.fields || isHalf)
      TakeFields(*look, isHalf);
  }

 private:
  static bool IsMarked(const JpegFacts& picture) {
    return picture.polarity != FieldPolarity::Frame;
  }
  static bool IsAboutHalf(int64_t height, int64_t frameHeight) {
    return frameHeight > 0 && 8 * height >= 3 * frameHeight && 8 * height <= 5 * frameHeight;
  }

  bool IsInside(const SamplePlaces::Place& place) const {
    return place.size != 0 && place.offset <= file_.Size() - place.size;
  }

  int64_t FirstInside() const {
    for (int64_t i = 0; i < track_.places.Count(); i = track_.places.NextRun(i)) {
      if (IsInside(track_.places.At(i)))
        return i;
    }
    throw QELRuntimeError(QEL_TEXT("the file is truncated: none of its "
                                   << track_.places.Count() << " samples lies inside its "
                                   << file_.Size() << " bytes"));
  }

  // Samples mostly lie in the order of their numbers.
  void TellTruncation() {
    const int64_t count = track_.places.Count();
    int64_t low = 0;
    int64_t high = count;
    while (low < high) {
      const int64_t middle = low + (high - low) / 2;
      const SamplePlaces::Place place = track_.places.At(middle);
      if (place.offset <= file_.Size() - place.size)
        low = middle + 1;
      else
        high = middle;
    }
    if (low < count) {
      facts_.problems.push_back(
          QEL_TEXT("the file is truncated: " << count - low << " of " << count
                                             << " samples lie behind its end, from number " << low
                                             << " on"));
    }
  }

  std::optional<JpegFacts> ReadHead(int64_t number) {
    const SamplePlaces::Place place = track_.places.At(number);
    if (!IsInside(place))
      return std::nullopt;
    for (int64_t wanted = kFirstHeadBytes; wanted <= kMaxHeadBytes; wanted *= 4) {
      std::vector<uint8_t> head(static_cast<size_t>(std::min(wanted, int64_t{place.size})));
      file_.ReadExactly(place.offset, head);
      const auto facts = ReadJpegFacts(head);
      if (facts || int64_t{place.size} <= wanted)
        return facts;
    }
    return std::nullopt;
  }

  // The first ones, then others across the track.
  std::optional<Look> FirstReadable() {
    const int64_t first = FirstInside();
    const int64_t behind = track_.places.Count();
    const int64_t numbers[kMaxLooks] = {first, first + 1, first + 2, (first + behind) / 2,
                                        behind - 1};
    for (const int64_t number : numbers) {
      if (number >= behind)
        continue;
      if (const auto facts = ReadHead(number))
        return Look{number, *facts};
    }
    return std::nullopt;
  }

  // The second picture of a sample, as large as the first, or a row more or less: one field of a
  // frame of odd height has it.
  std::optional<JpegFacts> ReadSecond(const Look& look) {
    const SamplePlaces::Place place = track_.places.At(look.number);
    std::vector<uint8_t> sample(std::min<size_t>(place.size, size_t{kMaxWholeBytes}));
    file_.Fetch(place.offset, place.offset + static_cast<int64_t>(sample.size()));
    file_.ReadExactly(place.offset, sample);
    const auto at = FindSecondPicture(sample);
    const auto facts = at ? ReadJpegFacts(std::span(sample).subspan(*at)) : std::nullopt;
    const bool isSecondField = facts && std::abs(facts->height - look.picture.height) <= 1;
    return isSecondField ? facts : std::nullopt;
  }

  void TakeFields(const Look& look, bool isHalf) {
    if (TakeTwoFields(look) || (!isHalf && !IsMarked(look.picture)))
      return;  // or a whole frame, whatever the header says
    const bool isEven = look.number % 2 == 0;
    const int64_t other = look.number + (isEven ? 1 : -1);
    const auto next = other < track_.places.Count() ? ReadHead(other) : std::nullopt;
    if (next && TakeTwoFields({other, *next}))  // the first one is damaged
      return;
    const bool alternates = next && IsMarked(look.picture) && IsMarked(*next) &&
                            look.picture.polarity != next->polarity;
    if (alternates)
      PairFields((look.picture.polarity == FieldPolarity::Even) == isEven, true);
    else if (isHalf && track_.fields)
      PairFields(track_.fields->isBottomStoredFirst, false);
  }

  // Whether the sample has two.
  bool TakeTwoFields(const Look& look) {
    const auto second = ReadSecond(look);
    if (!second)
      return false;
    const bool isBottomFirst = IsMarked(look.picture) ? look.picture.polarity == FieldPolarity::Even
                               : IsMarked(*second)
                                   ? second->polarity == FieldPolarity::Odd
                                   : track_.fields && track_.fields->isBottomStoredFirst;
    SetOrder(isBottomFirst, IsMarked(look.picture) || IsMarked(*second));
    facts_.height = std::max(facts_.height, second->height);
    return true;
  }

  void PairFields(bool isBottomFirst, bool isMarked) {
    if (facts_.repeats + track_.places.EmptyCount() > 0) {
      facts_.problems.push_back(
          "each sample is one field and some are missing: fields are shown as pictures");
      return;
    }
    track_.isFieldEach = true;
    SetOrder(isBottomFirst, isMarked);
  }

  void SetOrder(bool isBottomStoredFirst, bool isMarked) {
    facts_.isBottomStoredFirst = isBottomStoredFirst;
    bool isBottomShownFirst = isBottomStoredFirst;
    if (track_.fields)  // stored the other way round than the file says: shown so, too
      isBottomShownFirst ^= track_.fields->isBottomShownFirst != track_.fields->isBottomStoredFirst;
    facts_.fieldOrder = isBottomShownFirst ? FieldOrder::BottomFirst : FieldOrder::TopFirst;
    facts_.fieldOrderFrom = isMarked        ? "marks in the pictures"
                            : track_.fields ? "the file's header"
                                            : "the height of the pictures";
  }

  ReadAheadCache& file_;
  ContainerTrack& track_;
  TrackFacts& facts_;
};

}  // namespace

void TakePictureFacts(ReadAheadCache& file, ContainerTrack& track) {
  PictureLooks(file, track).Take();
}

}  // namespace qel
