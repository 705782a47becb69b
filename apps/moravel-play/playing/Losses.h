#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "sinks/Picture.h"

namespace Moravel::Play {

// Sample numbers as ranges. However they are added, it takes memory for a bounded number of ranges;
// what does not fit is counted.
class SampleRanges {
 public:
  struct Range {
    int64_t first;
    int64_t last;
    bool operator==(const Range&) const = default;
  };

  void Add(int64_t first, int64_t last);
  // So many that nobody numbered.
  void AddUnlisted(int64_t count) { leftOut_ += count; }
  // In ascending order, none touching another.
  std::vector<Range> List() const;
  int64_t LeftOut() const { return leftOut_; }

 private:
  std::map<int64_t, int64_t> lastOfFirst_;
  int64_t leftOut_ = 0;
};

// The pictures of one track that could not be shown as they were stored. Each is told, up to a
// bound; all of them are kept as ranges. Any thread may call anything.
class Losses {
 public:
  // One picture: what became of it, and why. Told on standard error.
  void Tell(const Track& track, PictureState state, int64_t sample, const std::string& field,
            const std::string& reason);
  // Samples that are told elsewhere.
  void Add(PictureState state, int64_t first, int64_t last);
  void AddUnlisted(PictureState state, int64_t count);
  // At the end: one line for those that were not told.
  void TellRest(const Track& track) const;

  std::map<PictureState, SampleRanges> Ranges() const;

 private:
  mutable std::mutex rangesAccess_;  // guards all below
  std::map<PictureState, SampleRanges> ranges_;
  std::map<PictureState, int64_t> untold_;
  int told_ = 0;
};

}  // namespace Moravel::Play
