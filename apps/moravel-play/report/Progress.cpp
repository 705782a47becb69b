#include "report/Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace Moravel::Play {

namespace {

constexpr int kBarWidth = 30;

}  // namespace

Progress::Progress(const TrackList& tracks, bool wanted)
    : tracks_(tracks), shown_(wanted && ::isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
  if (shown_)
    std::fputs("\r\033[K", stderr);
}

// The cursor is left at the beginning of the line: other lines go over the bar.
void Progress::Draw() {
  if (!shown_)
    return;
  int64_t done = 0;
  int64_t all = 0;
  int64_t bytes = 0;
  for (const PlayingTrack* track : tracks_.Open()) {
    done += track->statistics.samplesDone;
    all += track->facts.sequence.Count();
    bytes += track->statistics.bytes;
  }
  const double seconds =
      std::max(1e-3, std::chrono::duration<double>(Clock::now() - start_).count());
  const double share = static_cast<double>(done) / static_cast<double>(std::max<int64_t>(all, 1));
  const auto filled = static_cast<int>(share * kBarWidth);
  std::string bar(static_cast<size_t>(kBarWidth), '.');
  std::fill_n(bar.begin(), filled, '#');
  std::fprintf(stderr, "\033[K[%s] %3.0f %%  %lld of %lld samples  %.0f/s  %.1f MB/s\r",
               bar.c_str(), share * 100, static_cast<long long>(done), static_cast<long long>(all),
               static_cast<double>(done) / seconds, static_cast<double>(bytes) / 1e6 / seconds);
}

}  // namespace Moravel::Play
