#include "view/FileTimecode.h"

#include <algorithm>
#include <array>
#include <optional>

#include "command/TimeArgument.h"
#include "command/UsageError.h"
#include "view/RequestParameters.h"

namespace Moravel::Play {

namespace {

std::optional<qel::Timecode> FirstOf(const Track& track) {
  return track.stored ? track.stored->Facts().timecode : std::nullopt;
}

// Of the same rate and kind; nothing when there is no such time code.
std::optional<qel::Timecode> FromParts(const std::array<int64_t, 4>& parts,
                                       const qel::Timecode& kind) {
  return qel::Timecode::FromParts(parts[0], parts[1], parts[2], parts[3], kind.isDropFrame,
                                  {static_cast<uint32_t>(kind.framesPerSecond), 1});
}

bool BeginsWithName(const std::string& text) {
  return text.starts_with("TC") || text.starts_with("tc");
}

// The time code of the file's rate and kind, whichever way it is written; nothing when it is none.
std::optional<qel::Timecode> Parse(std::string text, const qel::Timecode& first) {
  text.erase(0, BeginsWithName(text) ? text.find_first_not_of("TCtc ") : 0);
  std::replace(text.begin(), text.end(), ';', ':');
  TimeArgument time;
  try {
    time = ParseTimeArgument("time", text);
  } catch (const UsageError&) {
    return std::nullopt;
  }
  if (time.form != TimeArgument::Form::TimeCode || time.fromEnd)
    return std::nullopt;
  constexpr int64_t kMicroseconds = 1'000'000;
  const int64_t seconds = time.microseconds / kMicroseconds;
  return FromParts({seconds / 3600, seconds / 60 % 60, seconds % 60, time.samples}, first);
}

int64_t PicturesOfDay(const qel::Timecode& first) {
  return FromParts({23, 59, 59, first.framesPerSecond - 1}, first)->frame + 1;
}

}  // namespace

std::string FileTimecodeOf(const Track& track, int64_t sample) {
  const auto first = FirstOf(track);
  return first ? first->Text(sample) : "";
}

bool IsFileTimecode(const std::string& text) {
  return BeginsWithName(text) || text.find(';') != std::string::npos;
}

int64_t SampleOfFileTimecode(const std::string& text, const Track& track) {
  const auto first = FirstOf(track);
  if (!first)
    throw BadRequest(text + ": this file has no time code of its own");
  const auto wanted = Parse(text, *first);
  const int64_t day = PicturesOfDay(*first);
  const int64_t sample = wanted ? ((wanted->frame - first->frame) % day + day) % day : -1;
  if (sample < 0 || sample >= track.sampleCount) {
    throw BadRequest(text + ": the time codes of this file go from TC " + first->Text() + " to " +
                     first->Text(track.sampleCount - 1));
  }
  return sample;
}

}  // namespace Moravel::Play
