#include <nlohmann/json.hpp>

#include "probe/ProbeReport.h"
#include "tracks/TrackTimes.h"

namespace Moravel::Play {

namespace {

using Json = nlohmann::ordered_json;

constexpr int kProbeSchema = 1;

const char* NameOf(qel::FieldOrder order) {
  switch (order) {
    case qel::FieldOrder::Progressive:
      break;
    case qel::FieldOrder::TopFirst:
      return "top_first";
    case qel::FieldOrder::BottomFirst:
      return "bottom_first";
  }
  return "progressive";
}

Json TimecodeToJson(const ProbedTrack& probed) {
  const auto& timecode = probed.Facts().timecode;
  if (!timecode)
    return nullptr;
  return {{"first", timecode->Text()}, {"last", timecode->Text(probed.track.sampleCount - 1)}};
}

Json ScanToJson(const ProbedTrack& probed) {
  if (!probed.scan)
    return nullptr;
  Json lost = Json::array();
  for (const ScanLoss& loss : probed.scan->losses) {
    lost.push_back({{"state", NameOf(loss.state)},
                    {"first", loss.first},
                    {"last", loss.last},
                    {"time", ToTimeCode(probed.track, loss.first)},
                    {"reason", loss.reason}});
  }
  return {{"samples_read", probed.scan->samplesRead},
          {"samples_lost", probed.scan->samplesLost},
          {"unlisted", probed.scan->unlisted},
          {"lost", lost}};
}

Json ToJson(const ProbedTrack& probed) {
  const Track& track = probed.track;
  const qel::TrackFacts& facts = probed.Facts();
  const Player::SampleRate average = track.AverageRate();
  const Size frame = track.FrameSize();
  return {{"track", track.name},
          {"container", facts.container},
          {"width", frame.width},
          {"height", frame.height},
          {"pixel_aspect", {facts.pixelAspectWidth, facts.pixelAspectHeight}},
          {"sampling", probed.sampling},
          {"interlaced", track.interlaced},
          {"field_order", NameOf(facts.fieldOrder)},
          {"field_order_from", facts.fieldOrderFrom},
          {"rate", {track.sampleRate.Numerator(), track.sampleRate.Denominator()}},
          {"average_rate", {average.Numerator(), average.Denominator()}},
          {"variable_rate", facts.isVariableRate},
          {"samples", track.sampleCount},
          {"samples_announced", facts.announcedSamples},
          {"samples_missing", facts.missing},
          {"repeats", facts.repeats},
          {"seconds", probed.seconds},
          {"timecode", TimecodeToJson(probed)},
          {"sample_bytes",
           {{"least", probed.sizes.least},
            {"mean", probed.sizes.mean},
            {"p99", probed.sizes.p99},
            {"most", probed.sizes.most}}},
          {"bytes", probed.sizes.total},
          {"index", {{"requests", facts.indexRequests}, {"bytes", facts.indexBytes}}},
          {"problems", probed.problems},
          {"scan", ScanToJson(probed)}};
}

}  // namespace

std::string ToJson(const ProbeOutcome& outcome) {
  Json json = {{"schema", kProbeSchema},
               {"command", "probe"},
               {"exit_code", outcome.exitCode},
               {"interrupted", outcome.interrupted}};
  json["tracks"] = Json::array();
  for (const ProbedTrack& track : outcome.tracks)
    json["tracks"].push_back(ToJson(track));
  json["failed_tracks"] = Json::array();
  for (const FailedTrack& track : outcome.failed)
    json["failed_tracks"].push_back({{"track", track.name}, {"reason", track.reason}});
  // Names may hold any bytes.
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace Moravel::Play
