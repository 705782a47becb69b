#include "report/Report.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "qelCore/Printable.h"
#include "report/DisplayText.h"
#include "report/Verdict.h"
#include "tracks/TrackTimes.h"

namespace Moravel::Play {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kSchemaVersion = 2;  // of the JSON report; docs/report.md
constexpr double kMedian = 0.5;
constexpr double kTail = 0.99;
constexpr int kNameWidth = 24;  // leaves a line within 80 columns

double Ratio(double value, double by) {
  return by > 0 ? value / by : 0;
}

double MegabytesPerSecond(const TrackStatistics& statistics, double seconds) {
  return Ratio(static_cast<double>(statistics.bytes) / 1e6, seconds);
}

double LinkRate(const TrackStatistics& statistics) {
  return MegabytesPerSecond(statistics, statistics.asking.Seconds());
}

Verdict Judge(const PlayingTrack& track, const Outcome& outcome) {
  return Judge(track, outcome.options.jobs, outcome.options.realtime);
}

template <typename... Values>
std::string Line(const char* format, Values... values) {
  char text[256];
  std::snprintf(text, sizeof text, format, values...);
  return std::string(text) + "\n";
}

long long Wide(int64_t value) {
  return value;
}

std::string Name(const PlayingTrack& track, int width) {
  return FitToWidth(qel::Printable(track.facts.name), width);
}

int NameWidth(const Outcome& outcome) {
  int width = 5;
  for (const PlayingTrack* track : outcome.tracks)
    width = std::clamp(DisplayWidth(qel::Printable(track->facts.name)), width, kNameWidth);
  return width;
}

std::string FetchingTable(const Outcome& outcome, int nameWidth) {
  std::string table =
      FitToWidth("track", nameWidth) + Line(" %9s %7s %6s %8s %7s %8s", "preloaded", "missing",
                                            "errors", "link MB/s", "p50 ms", "p99 ms");
  for (const PlayingTrack* track : outcome.tracks) {
    const TrackStatistics& statistics = track->statistics;
    table += Name(*track, nameWidth) + Line(" %9lld %7lld %6lld %9.1f %7.1f %8.1f",
                                            Wide(statistics.preloaded), Wide(statistics.missing),
                                            Wide(statistics.errors), LinkRate(statistics),
                                            statistics.latency.PercentileMilliseconds(kMedian),
                                            statistics.latency.PercentileMilliseconds(kTail));
  }
  return table;
}

std::string PicturesTable(const Outcome& outcome, int nameWidth) {
  const bool realtime = outcome.options.realtime;
  std::string table =
      FitToWidth("track", nameWidth) + Line(" %11s %9s %8s %11s%s", "size", "pictures", "damaged",
                                            "pictures/s", realtime ? "   late  dropped" : "");
  for (const PlayingTrack* track : outcome.tracks) {
    const double seconds = Judge(*track, outcome).seconds;
    const TrackStatistics& statistics = track->statistics;
    for (size_t i = 0; i < track->facts.sizes.size(); ++i) {
      const SizeStatistics& size = statistics.sizes[i];
      const std::string late =
          realtime ? Line(" %6lld %8lld", Wide(statistics.late), Wide(statistics.dropped)) : "\n";
      std::string line = Line(" %11s %9lld %8lld %11.1f", track->facts.sizes[i].ToString().c_str(),
                              Wide(size.pictures), Wide(size.damaged),
                              Ratio(static_cast<double>(size.pictures), seconds));
      line.pop_back();
      table += Name(*track, nameWidth) + line + late;
    }
  }
  return table;
}

// Where the time of a track and of its server's connections went; for -v.
std::string TimesOf(const PlayingTrack& track, const Outcome& outcome) {
  const TrackStatistics& statistics = track.statistics;
  const ServerStatistics& server = *track.server;
  const double seconds = Judge(track, outcome).seconds;
  return Line("  %.2f s: asking the server %.2f s, decoding %.2f s; %.1f MB/s", seconds,
              statistics.asking.Seconds(), statistics.decoding.Seconds(),
              MegabytesPerSecond(statistics, seconds)) +
         Line("  its server, of %.2f s: asking %.2f s, waiting for room %.2f s",
              outcome.seconds * server.connections, server.asking.Seconds(),
              server.waiting.Seconds());
}

std::string WorkerTimes(const Outcome& outcome) {
  return Line("workers, of %.2f s: decoding %.2f s, writing %.2f s",
              outcome.seconds * outcome.options.jobs, outcome.workers.decoding.Seconds(),
              outcome.workers.writing.Seconds());
}

Json ServerToJson(const ServerStatistics& server) {
  return {{"connections", server.connections.load()},
          {"asking_seconds", server.asking.Seconds()},
          {"waiting_seconds", server.waiting.Seconds()},
          {"pausing_seconds", server.pausing.Seconds()}};
}

Json SizesToJson(const PlayingTrack& track, double seconds) {
  auto sizes = Json::array();
  for (size_t i = 0; i < track.facts.sizes.size(); ++i) {
    const SizeStatistics& statistics = track.statistics.sizes[i];
    const int64_t pictures = statistics.pictures;
    sizes.push_back({{"width", track.facts.sizes[i].width},
                     {"height", track.facts.sizes[i].height},
                     {"pictures", pictures},
                     {"damaged", statistics.damaged.load()},
                     {"pictures_per_second", Ratio(static_cast<double>(pictures), seconds)}});
  }
  return sizes;
}

Json LossesToJson(const PlayingTrack& track) {
  auto list = Json::array();
  for (const auto& [state, ranges] : track.statistics.losses.Ranges()) {
    for (const auto& [first, last] : ranges.List()) {
      list.push_back({{"what", NameOf(state)},
                      {"first", first},
                      {"last", last},
                      {"first_time", ToTimeCode(track.facts, first)},
                      {"last_time", ToTimeCode(track.facts, last)}});
    }
    if (ranges.LeftOut() != 0)
      list.push_back({{"what", NameOf(state)}, {"unlisted", ranges.LeftOut()}});
  }
  return list;
}

Json VerdictToJson(const Verdict& verdict) {
  return {{"plays", verdict.plays},
          {"speed", verdict.speed},
          {"samples_per_second", verdict.samplesPerSecond},
          {"needed_samples_per_second", verdict.neededPerSecond},
          {"limit", NameOf(verdict.limit)},
          {"limit_share", verdict.limitShare},
          {"text", verdict.text}};
}

Json TrackToJson(const PlayingTrack& track, const Outcome& outcome) {
  const Track& facts = track.facts;
  const TrackStatistics& statistics = track.statistics;
  const Verdict verdict = Judge(track, outcome);
  return {{"track", facts.name},
          {"width", facts.ownSize.width},
          {"height", facts.ownSize.height},
          {"interlaced", facts.interlaced},
          {"rate", {facts.sampleRate.Numerator(), facts.sampleRate.Denominator()}},
          {"variable_rate", facts.IsVariableRate()},
          {"samples", facts.sampleCount},
          {"problems", facts.problems},
          {"seconds", verdict.seconds},
          {"preloaded", statistics.preloaded.load()},
          {"missing", statistics.missing.load()},
          {"errors", statistics.errors.load()},
          {"late", statistics.late.load()},
          {"dropped", statistics.dropped.load()},
          {"bytes", statistics.bytes.load()},
          {"megabytes_per_second", MegabytesPerSecond(statistics, verdict.seconds)},
          {"asking_seconds", statistics.asking.Seconds()},
          {"link_megabytes_per_second", LinkRate(statistics)},
          {"decoding_seconds", statistics.decoding.Seconds()},
          {"server", ServerToJson(*track.server)},
          {"latency_ms",
           {{"p50", statistics.latency.PercentileMilliseconds(kMedian)},
            {"p99", statistics.latency.PercentileMilliseconds(kTail)}}},
          {"sizes", SizesToJson(track, verdict.seconds)},
          {"losses", LossesToJson(track)},
          {"verdict", VerdictToJson(verdict)}};
}

}  // namespace

std::string ToTable(const Outcome& outcome) {
  const int nameWidth = NameWidth(outcome);
  const bool tellsTimes = outcome.options.logLevel <= orl::mv::logging::ILogger::Level_Info;
  std::string table;
  if (outcome.interrupted)
    table += Line("interrupted after %.1f seconds", outcome.seconds);
  if (outcome.tracks.empty())
    return table;
  table += FetchingTable(outcome, nameWidth) + "\n";
  if (outcome.options.DecodesPictures())
    table += PicturesTable(outcome, nameWidth) + "\n";
  for (const PlayingTrack* track : outcome.tracks) {
    const std::string name = qel::Printable(track->facts.name);
    std::string text = Judge(*track, outcome).text;
    const bool fits = DisplayWidth(name) + 2 + DisplayWidth(text) <= 80;
    const size_t limit = text.find("; ");
    if (DisplayWidth(text) > 78 && limit != std::string::npos)
      text.replace(limit, 2, ";\n  ");
    table += name + (fits ? ": " : ":\n  ") + text + "\n";
    if (tellsTimes)
      table += TimesOf(*track, outcome);
  }
  if (tellsTimes)
    table += WorkerTimes(outcome);
  return table;
}

std::string ToJson(const Outcome& outcome) {
  Json json = {{"schema", kSchemaVersion},
               {"exit_code", outcome.exitCode},
               {"interrupted", outcome.interrupted},
               {"seconds", outcome.seconds},
               {"workers",
                {{"count", outcome.options.jobs},
                 {"decoding_seconds", outcome.workers.decoding.Seconds()},
                 {"writing_seconds", outcome.workers.writing.Seconds()}}}};
  json["tracks"] = Json::array();
  for (const PlayingTrack* track : outcome.tracks)
    json["tracks"].push_back(TrackToJson(*track, outcome));
  json["failed_tracks"] = Json::array();
  for (const FailedTrack& track : outcome.failed)
    json["failed_tracks"].push_back({{"track", track.name}, {"reason", track.reason}});
  // Names may hold any bytes.
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Moravel::Play
