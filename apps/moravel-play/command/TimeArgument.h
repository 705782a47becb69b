#pragma once

#include <cstdint>
#include <string>

namespace Moravel::Play {

// A place in a track, or a length of one, as people write it:
//   62.5, 62.5s, 1:02.5, 0:01:02.5   seconds; minutes and seconds; hours too
//   00:01:02:12                      hours, minutes, seconds, and pictures within the second
//   #137                             a sample by its number, which begin with 0; 137 samples
// With a minus in front it is counted back from the end of the track: -2s, -#50.
// tracks/TrackTimes.h finds the sample. A value.
struct TimeArgument {
  enum class Form { Seconds, TimeCode, Samples };

  Form form = Form::Seconds;
  bool fromEnd = false;
  int64_t microseconds = 0;  // whole seconds in a time code, none in a number of samples
  int64_t samples = 0;       // of a time code, pictures within the second

  // In one of the forms above: parsed, it is the same value.
  std::string ToString() const;
  bool operator==(const TimeArgument&) const = default;
};

// Throws UsageError, which names the option.
TimeArgument ParseTimeArgument(const std::string& option, const std::string& text);

}  // namespace Moravel::Play
