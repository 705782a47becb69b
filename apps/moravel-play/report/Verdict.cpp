#include "report/Verdict.h"

#include <algorithm>
#include <cstdio>

namespace Moravel::Play {

namespace {

std::string Rounded(double value, int digits) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

// With the digits that show which is smaller.
std::string RoundedBelow(double value, double limit) {
  constexpr int kMaxDigits = 5;
  int digits = 1;
  while (digits < kMaxDigits && Rounded(value, digits) == Rounded(limit, digits))
    ++digits;
  return Rounded(value, digits);
}

std::string Share(double share) {
  return Rounded(100 * std::clamp(share, 0.0, 1.0), 0) + " %";
}

double OwnSeconds(const TrackStatistics& statistics) {
  if (!statistics.begin)
    return 0;
  return std::chrono::duration<double>(statistics.end.time - statistics.begin->time).count();
}

// Of the track's time alone: what went on before and after it held it up not.
void FindLimit(const PlayingTrack& track, int jobs, Verdict& verdict) {
  const Moment& begin = *track.statistics.begin;
  const Moment& end = track.statistics.end;
  const double ofConnections =
      (end.asking - begin.asking) / (verdict.seconds * track.serving->count);
  const double decoding = (end.decoding - begin.decoding) / (verdict.seconds * jobs);
  const double writing = (end.writing - begin.writing) / (verdict.seconds * jobs);
  if (ofConnections >= std::max(decoding, writing)) {
    verdict.limit = Verdict::Limit::Server;
    verdict.limitShare = ofConnections;
  } else {
    verdict.limit = decoding >= writing ? Verdict::Limit::Decoding : Verdict::Limit::Writing;
    verdict.limitShare = std::max(decoding, writing);
  }
}

std::string LimitText(const Verdict& verdict, int jobs) {
  const std::string share = Share(verdict.limitShare);
  const std::string workers = jobs == 1 ? "one worker" : std::to_string(jobs) + " workers";
  switch (verdict.limit) {
    case Verdict::Limit::Server:
      return "the server is the limit (" + share + " of the time waiting for it)";
    case Verdict::Limit::Decoding:
      return "decoding is the limit (" + share + " of the time of " + workers + ")";
    case Verdict::Limit::Writing:
      return "writing is the limit (" + share + " of the time of " + workers + ")";
    case Verdict::Limit::None:
      break;
  }
  return "";
}

// What a track of variable rate needs is told of what was played.
std::string NeededText(const Track& track, double perSecond) {
  if (!track.IsVariableRate())
    return ToRateText(track.sampleRate);
  return Rounded(perSecond, 1) + " fps on average";
}

std::string RealtimeText(const TrackStatistics& statistics) {
  const int64_t lost = statistics.late + statistics.dropped;
  if (lost == 0)
    return "all pictures on time";
  const std::string late = std::to_string(lost) + (lost == 1 ? " picture late" : " pictures late");
  return statistics.dropped == 0
             ? late
             : late + ", " + std::to_string(statistics.dropped) + " of them dropped";
}

}  // namespace

Verdict Judge(const PlayingTrack& track, int jobs, bool realtime) {
  const TrackStatistics& statistics = track.statistics;
  const double playSeconds = static_cast<double>(statistics.playTicks) /
                             static_cast<double>(Time::TimePoint::kTicksPerSecond);

  Verdict verdict;
  verdict.seconds = OwnSeconds(statistics);
  const int64_t done = statistics.samplesPlayed;
  if (verdict.seconds > 0)
    verdict.samplesPerSecond = static_cast<double>(done) / verdict.seconds;
  const bool isPaced = realtime && statistics.late + statistics.dropped == 0;
  if (done < 2 || verdict.seconds <= 0 || playSeconds <= 0) {
    verdict.text = done == 0 ? "nothing was played" : "too little was played to tell how fast";
    return verdict;
  }
  verdict.neededPerSecond = static_cast<double>(done) / playSeconds;
  verdict.speed = playSeconds / verdict.seconds;
  const std::string rateText = NeededText(track.facts, verdict.neededPerSecond);
  verdict.plays = isPaced || (!realtime && verdict.speed >= 1);
  if (!verdict.plays)
    FindLimit(track, jobs, verdict);
  if (realtime) {
    verdict.text = (verdict.plays ? "plays at " : "does not play at ") + rateText + ": " +
                   RealtimeText(statistics);
  } else if (verdict.plays) {
    verdict.text =
        "plays at " + rateText + " with " + Rounded(verdict.speed, 1) + " times the speed needed";
  } else {
    verdict.text = "too slow: " + RoundedBelow(verdict.samplesPerSecond, verdict.neededPerSecond) +
                   " of " + rateText;
  }
  if (!verdict.plays)
    verdict.text += "; " + LimitText(verdict, jobs);
  return verdict;
}

const char* NameOf(Verdict::Limit limit) {
  switch (limit) {
    case Verdict::Limit::Server:
      return "server";
    case Verdict::Limit::Decoding:
      return "decoding";
    case Verdict::Limit::Writing:
      return "writing";
    case Verdict::Limit::None:
      break;
  }
  return "none";
}

}  // namespace Moravel::Play
