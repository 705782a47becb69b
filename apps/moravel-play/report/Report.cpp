#include "report/Report.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace Moravel::Play {

namespace {

constexpr double kMedian = 0.5;
constexpr double kTail = 0.99;

double PerSecond(int64_t count, double seconds) {
  return seconds > 0 ? static_cast<double>(count) / seconds : 0;
}

double MegabytesPerSecond(const TrackStatistics& statistics) {
  return PerSecond(statistics.bytes, statistics.PreloadSeconds()) / 1e6;
}

template <typename... Values>
std::string Line(const char* format, Values... values) {
  const int length = std::snprintf(nullptr, 0, format, values...);
  std::string text(static_cast<size_t>(length) + 1, '\0');  // a name may be as long as a path
  std::snprintf(text.data(), text.size(), format, values...);
  text.back() = '\n';
  return text;
}

long long Wide(int64_t value) {
  return value;
}

nlohmann::ordered_json SizesToJson(const PlayingTrack& track, double seconds) {
  auto sizes = nlohmann::ordered_json::array();
  for (size_t i = 0; i < track.facts.sizes.size(); ++i) {
    const SizeStatistics& statistics = track.statistics.sizes[i];
    const int64_t pictures = statistics.pictures;
    sizes.push_back({{"width", track.facts.sizes[i].width},
                     {"height", track.facts.sizes[i].height},
                     {"pictures", pictures},
                     {"damaged", statistics.damaged.load()},
                     {"pictures_per_second", PerSecond(pictures, seconds)}});
  }
  return sizes;
}

nlohmann::ordered_json LossesToJson(const Losses& losses) {
  auto list = nlohmann::ordered_json::array();
  for (const auto& [state, ranges] : losses.Ranges()) {
    for (const auto& [first, last] : ranges.List())
      list.push_back({{"what", NameOf(state)}, {"first", first}, {"last", last}});
    if (ranges.LeftOut() != 0)
      list.push_back({{"what", NameOf(state)}, {"unlisted", ranges.LeftOut()}});
  }
  return list;
}

nlohmann::ordered_json TrackToJson(const PlayingTrack& track, double seconds) {
  const Track& facts = track.facts;
  const TrackStatistics& statistics = track.statistics;
  return {{"track", facts.name},
          {"width", facts.ownSize.width},
          {"height", facts.ownSize.height},
          {"interlaced", facts.interlaced},
          {"rate", {facts.sampleRate.Numerator(), facts.sampleRate.Denominator()}},
          {"samples", facts.sampleCount},
          {"preloaded", statistics.preloaded.load()},
          {"missing", statistics.missing.load()},
          {"errors", statistics.errors.load()},
          {"bytes", statistics.bytes.load()},
          {"megabytes_per_second", MegabytesPerSecond(statistics)},
          {"latency_ms",
           {{"p50", statistics.latency.PercentileMilliseconds(kMedian)},
            {"p99", statistics.latency.PercentileMilliseconds(kTail)}}},
          {"sizes", SizesToJson(track, seconds)},
          {"losses", LossesToJson(statistics.losses)}};
}

}  // namespace

std::string ToTable(const Outcome& outcome) {
  std::string table;
  int nameWidth = 5;
  for (const PlayingTrack* track : outcome.tracks)
    nameWidth = std::clamp(static_cast<int>(track->facts.name.size()), nameWidth, 60);

  table += Line("%-*s %10s %9s %8s %9s %9s %9s", nameWidth, "track", "preloaded", "missing",
                "errors", "MB/s", "p50 ms", "p99 ms");
  for (const PlayingTrack* track : outcome.tracks) {
    const TrackStatistics& statistics = track->statistics;
    table +=
        Line("%-*s %10lld %9lld %8lld %9.1f %9.3f %9.3f", nameWidth, track->facts.name.c_str(),
             Wide(statistics.preloaded), Wide(statistics.missing), Wide(statistics.errors),
             MegabytesPerSecond(statistics), statistics.latency.PercentileMilliseconds(kMedian),
             statistics.latency.PercentileMilliseconds(kTail));
  }
  table += Line("\n%-*s %12s %9s %9s %12s", nameWidth, "track", "size", "pictures", "damaged",
                "pictures/s");
  for (const PlayingTrack* track : outcome.tracks) {
    for (size_t i = 0; i < track->facts.sizes.size(); ++i) {
      const SizeStatistics& statistics = track->statistics.sizes[i];
      table += Line("%-*s %12s %9lld %9lld %12.1f", nameWidth, track->facts.name.c_str(),
                    track->facts.sizes[i].ToString().c_str(), Wide(statistics.pictures),
                    Wide(statistics.damaged), PerSecond(statistics.pictures, outcome.seconds));
    }
  }
  return table;
}

std::string ToJson(const Outcome& outcome) {
  nlohmann::ordered_json json = {{"exit_code", outcome.exitCode},
                                 {"interrupted", outcome.interrupted},
                                 {"seconds", outcome.seconds}};
  json["tracks"] = nlohmann::ordered_json::array();
  for (const PlayingTrack* track : outcome.tracks)
    json["tracks"].push_back(TrackToJson(*track, outcome.seconds));
  json["failed_tracks"] = nlohmann::ordered_json::array();
  for (const FailedTrack& track : outcome.failed)
    json["failed_tracks"].push_back({{"track", track.name}, {"reason", track.reason}});
  // Names may hold any bytes.
  return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace Moravel::Play
