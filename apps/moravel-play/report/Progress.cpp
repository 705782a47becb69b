#include "report/Progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace Moravel::Play {

namespace {

constexpr int kMostBarWidth = 30;
constexpr int kLeastBarWidth = 5;

int TerminalWidth() {
  winsize size = {};
  return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : 80;
}

}  // namespace

Progress::Progress(const TrackList& tracks, bool wanted)
    : tracks_(tracks), shown_(wanted && ::isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
  if (shown_)
    std::fputs("\r\033[K", stderr);
}

// The cursor is left at the beginning of the line: other lines go over the bar. The last column
// stays empty, as a terminal may go to its next line after it.
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
  char numbers[128];
  const int length = std::snprintf(
      numbers, sizeof numbers, "%3.0f %%  %lld of %lld samples  %.0f/s  %.1f MB/s", share * 100,
      static_cast<long long>(done), static_cast<long long>(all),
      static_cast<double>(done) / seconds, static_cast<double>(bytes) / 1e6 / seconds);
  const int room = TerminalWidth() - 1;
  const int barWidth = std::min(kMostBarWidth, room - length - 3);
  std::string bar;
  if (barWidth >= kLeastBarWidth) {
    bar = std::string(static_cast<size_t>(barWidth), '.');
    std::fill_n(bar.begin(), static_cast<int>(share * barWidth), '#');
    bar = "[" + bar + "] ";
  }
  std::fprintf(stderr, "\033[K%.*s\r", room, (bar + numbers).c_str());
}

}  // namespace Moravel::Play
