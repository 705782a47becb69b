#include "playing/Losses.h"

#include <algorithm>

#include "command/Problem.h"
#include "tracks/TrackTimes.h"

namespace Moravel::Play {

namespace {

constexpr size_t kMaxRanges = 10'000;
constexpr int kMaxTold = 10;  // of each track

}  // namespace

void SampleRanges::Add(int64_t first, int64_t last) {
  auto next = lastOfFirst_.upper_bound(first);
  if (next != lastOfFirst_.begin() && std::prev(next)->second >= first - 1) {
    --next;
    first = next->first;
  }
  const auto begin = next;
  for (; next != lastOfFirst_.end() && next->first <= last + 1; ++next)
    last = std::max(last, next->second);
  lastOfFirst_.erase(begin, next);
  if (lastOfFirst_.size() < kMaxRanges)
    lastOfFirst_[first] = last;
  else
    leftOut_ += last - first + 1;
}

std::vector<SampleRanges::Range> SampleRanges::List() const {
  std::vector<Range> list;
  for (const auto& [first, last] : lastOfFirst_)
    list.push_back({first, last});
  return list;
}

void Losses::Tell(const Track& track, PictureState state, int64_t sample, const std::string& field,
                  const std::string& reason) {
  const std::lock_guard<std::mutex> lock(rangesAccess_);
  ranges_[state].Add(sample, sample);
  if (told_ == kMaxTold) {
    ++untold_[state];
    return;
  }
  ++told_;
  PrintProblem(track.name + ": sample " + std::to_string(sample) + (field.empty() ? "" : " ") +
               field + " (" + ToTimeCode(track, sample) + ") " + NameOf(state) +
               (reason.empty() ? "" : ": ") + reason);
}

void Losses::Add(PictureState state, int64_t first, int64_t last) {
  const std::lock_guard<std::mutex> lock(rangesAccess_);
  ranges_[state].Add(first, last);
}

void Losses::AddUnlisted(PictureState state, int64_t count) {
  const std::lock_guard<std::mutex> lock(rangesAccess_);
  if (count > 0)
    ranges_[state].AddUnlisted(count);
}

void Losses::TellRest(const Track& track) const {
  const std::lock_guard<std::mutex> lock(rangesAccess_);
  std::string counts;
  for (const auto& [state, count] : untold_)
    counts += (counts.empty() ? "" : ", ") + std::to_string(count) + " more " + NameOf(state);
  if (!counts.empty())
    PrintProblem(track.name + ": " + counts + " (--json lists them)");
}

std::map<PictureState, SampleRanges> Losses::Ranges() const {
  const std::lock_guard<std::mutex> lock(rangesAccess_);
  return ranges_;
}

}  // namespace Moravel::Play
