#include "elements/storage/TrackIndex.h"

#include <utility>

#include "elements/storage/FileKind.h"
#include "elements/storage/TrackPictures.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

TrackIndex::TrackIndex(ContainerTrack track)
    : facts_(std::move(track.facts)),
      places_(std::move(track.places)),
      chunkHeaderBytes_(track.chunkHeaderBytes),
      streamNumber_(track.streamNumber),
      isFieldEach_(track.isFieldEach) {
  places_.Compact();
  RatedTimes rated = SettleRate(track.times, track.timeUnits, track.timeUnitsPer);
  times_ = std::move(rated.times);
  facts_.timeRate = rated.timeRate;
  facts_.nominalRate = rated.nominalRate;
  facts_.isVariableRate = rated.isVariable;
  facts_.missing = places_.EmptyCount();
  if (isFieldEach_)
    PairFields();
}

// Two samples become one, of half the rate.
void TrackIndex::PairFields() {
  SampleTimes paired;
  if (facts_.isVariableRate) {
    for (int64_t i = 0; i < Count(); i += 2)
      paired.Add(1, Start(std::min(i + 2, Count())) - Start(i));
  } else {
    paired.Add((Count() + 1) / 2, 1);
  }
  const RatedTimes rated =
      SettleRate(paired, facts_.timeRate._numerator,
                 int64_t{facts_.timeRate._denominator} * (facts_.isVariableRate ? 1 : 2));
  times_ = rated.times;
  facts_.timeRate = rated.timeRate;
  facts_.nominalRate = rated.nominalRate;
}

TrackIndex::Sample TrackIndex::At(int64_t number) const {
  if (!isFieldEach_) {
    const SamplePlaces::Place place = places_.At(number);
    return {place.offset, place.size, place.size, 0};
  }
  const SamplePlaces::Place first = places_.At(2 * number);
  if (2 * number + 1 == places_.Count())
    return {first.offset, first.size, first.size, 0};
  const SamplePlaces::Place second = places_.At(2 * number + 1);
  if (second.offset < first.offset + first.size)  // cannot be read as one
    return {first.offset, kMaxFileOffset, first.size, 0};
  const int64_t secondField = second.offset - first.offset;
  return {first.offset, secondField + second.size, first.size, secondField};
}

std::optional<int64_t> TrackIndex::Find(const MediaTime& time) const {
  __extension__ using Wide = __int128;  // 63 + 32 + 32 bits at most
  const EditRate& rate = time.GetEditRate();
  if (rate._numerator == 0 || rate._denominator == 0) {
    throw QELRuntimeError(QEL_TEXT("cannot seek at an edit rate of "
                                   << rate._numerator << "/" << rate._denominator
                                   << ": both parts must be above zero"));
  }
  if (time.GetTimeNumber() < 0)
    return std::nullopt;
  const Wide units = Wide{time.GetTimeNumber()} * rate._denominator * facts_.timeRate._numerator /
                     (Wide{rate._numerator} * facts_.timeRate._denominator);
  if (units >= Start(Count()))
    return std::nullopt;
  return times_.Find(static_cast<int64_t>(units));
}

int64_t TrackIndex::MemoryBytes() const {
  return int64_t{sizeof *this} + places_.MemoryBytes() + times_.MemoryBytes();
}

TrackIndex ReadTrackIndex(IFileBytes& bytes) {
  ReadAheadCache file(bytes);
  ContainerTrack track =
      ReadFileKind(file) == FileKind::Avi ? ReadAviTrack(file) : ReadMovTrack(file);
  TakePictureFacts(file, track);
  track.facts.indexRequests = bytes.Cost().requests;
  track.facts.indexBytes = bytes.Cost().bytes;
  return TrackIndex(std::move(track));
}

}  // namespace qel
