#include "view/ViewService.h"

#include <filesystem>
#include <nlohmann/json.hpp>
#include <utility>

#include "command/TimeArgument.h"
#include "command/TrackArgument.h"
#include "command/UsageError.h"
#include "sinks/WovenFrame.h"
#include "tracks/TrackTimes.h"
#include "view/FileTimecode.h"
#include "view/JpegWriter.h"
#include "view/PageFiles.h"
#include "view/RequestParameters.h"

namespace Moravel::Play {

namespace {

using nlohmann::json;
using State = LivePicture::State;

// The page works with the program that it came from, of this run.
const std::vector<std::pair<std::string, std::string>> kHeaders = {
    {"Cache-Control", "no-store"},
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob:; "
     "connect-src 'self'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Referrer-Policy", "no-referrer"},
    {"X-Content-Type-Options", "nosniff"}};

// How the page is told of a state.
struct Outcome {
  const char* name;
  unsigned status;
};
Outcome OutcomeOf(State state) {
  switch (state) {
    case State::Shown:
      return {"shown", 200};
    case State::Damaged:
      return {"damaged", 200};
    case State::Missing:
      return {"missing", 404};
    case State::Broken:
      return {"broken", 422};
    case State::Stale:
      return {"stale", 204};
    case State::Failed:
      break;
  }
  return {"failed", 503};
}

// Names may hold any bytes.
std::string ToText(const json& value) {
  return value.dump(-1, ' ', true, json::error_handler_t::replace);
}

HttpAnswer ToAnswer(const json& value) {
  return {.type = "application/json", .body = ToText(value)};
}

// A file by its name alone; a track of a server by the server and its number there.
std::string LabelOf(const Track& track) {
  if (ParseTrackArgument(track.name).remoteId)
    return track.id.ToString();
  return std::filesystem::path(track.name).filename().string();
}

json ToJson(const Track& track, const LiveEngine::Marks& marks) {
  const Size size = track.FrameSize();
  const auto [shapeWidth, shapeHeight] = track.DisplayShape();
  return {{"number", track.index},
          {"name", LabelOf(track)},
          {"path", track.name},
          {"width", size.width},
          {"height", size.height},
          {"shape", {shapeWidth, shapeHeight}},
          {"interlaced", track.interlaced},
          {"bottomFirst", track.bottomFirst},
          {"variable", track.IsVariableRate()},
          {"samples", track.sampleCount},
          {"timecode", FileTimecodeOf(track, 0)},
          {"rate", {track.sampleRate.Numerator(), track.sampleRate.Denominator()}},
          {"damaged", marks.damaged},
          {"missing", marks.missing}};
}

// Runs of samples that last equally long, and how long: [count, duration, count, duration, ...].
HttpAnswer TimesOf(const Track& track) {
  json runs = json::array();
  if (track.stored) {
    const qel::SampleTimes& times = track.stored->Times();
    for (size_t run = 0; run < times.Runs().size(); ++run) {
      runs.push_back(times.RunEnd(run) - times.Runs()[run].first);
      runs.push_back(times.Runs()[run].duration);
    }
  }
  const Player::SampleRate rate = track.OrderRate();
  return ToAnswer({{"rate", {rate.Numerator(), rate.Denominator()}}, {"runs", std::move(runs)}});
}

Size Scaled(const Size& size, int64_t scale) {
  const auto divide = [scale](int side) { return static_cast<int>((side + scale - 1) / scale); };
  return {divide(size.width), divide(size.height)};
}

LiveOrder ReadOrder(const HttpRequest& request, const Track& track) {
  constexpr int64_t kMaxScale = 16;
  LiveOrder order;
  order.key = {track.index, NumberParameter(request, "sample", 0, track.sampleCount - 1)};
  order.size = Scaled(track.ownSize, NumberParameter(request, "scale", 1, kMaxScale));
  order.kind =
      static_cast<LiveOrder::Kind>(WordParameter(request, "kind", {"show", "play", "thumbnail"}));
  if (order.kind == LiveOrder::Kind::Play) {
    constexpr int64_t kMaxStep = 1000;
    order.step = NumberParameter(request, "step", -kMaxStep, kMaxStep);
    if (order.step == 0)
      throw BadRequest("\"step\" must not be 0");
  }
  order.lane = NameParameter(request, "lane");
  order.generation = NumberParameter(request, "generation", 0, INT64_MAX);
  return order;
}

// One field is better than nothing.
LivePicture WithoutOtherField(LivePicture picture, const std::string& other) {
  picture.state = State::Damaged;
  picture.reason = "the " + other + " field cannot be shown";
  return picture;
}

// The worse of two fields tells of their frame.
HttpAnswer Weave(LivePicture top, LivePicture bottom, HttpAnswer answer) {
  answer.type = "image/jpeg";
  answer.body = WriteJpeg(bottom.image ? *WeaveFields(top.image, bottom.image) : *top.image);
  return answer;
}

HttpAnswer Describe(const LivePicture& picture, const std::string& timecode) {
  const Outcome outcome = OutcomeOf(picture.state);
  HttpAnswer answer = {.status = outcome.status};
  answer.headers = {{"X-Picture", outcome.name}, {"X-Timecode", timecode}};
  if (picture.image)
    answer.headers.emplace_back("X-Reason", ToText(picture.reason));
  else if (picture.state != State::Stale)
    answer.body = picture.reason;
  return answer;
}

}  // namespace

HttpAnswer ViewService::Answer(const HttpRequest& request, uint16_t port) {
  const auto what = gate_.Admit(request, port);
  HttpAnswer answer = {.status = 403,
                       .body = "this page is for the address that moravel-play printed"};
  if (what)
    answer = Admitted(request, *what);
  answer.headers.insert(answer.headers.end(), kHeaders.begin(), kHeaders.end());
  return answer;
}

HttpAnswer ViewService::Admitted(const HttpRequest& request, const std::string& what) {
  try {
    if (what == "tracks")
      return Tracks();
    if (what == "times")
      return TimesOf(TrackOf(request));
    if (what == "figures")
      return Figures();
    if (what == "sample")
      return SampleAt(request);
    if (what == "picture")
      return Picture(request);
  } catch (const BadRequest& error) {
    return {.status = 400, .body = error.what()};
  } catch (const UsageError& error) {
    return {.status = 400, .body = error.what()};
  }
  if (const PageFile* const file = FindPageFile(what.empty() ? "view.html" : what))
    return {.type = std::string(file->type) + "; charset=utf-8",
            .body = std::string(file->content)};
  return {.status = 404, .body = "there is nothing of that name"};
}

const Track& ViewService::TrackOf(const HttpRequest& request) const {
  const auto number = static_cast<int>(NumberParameter(request, "track", 1, INT32_MAX));
  if (const Track* const track = engine_.FindTrack(number))
    return *track;
  throw BadRequest("there is no track " + std::to_string(number));
}

HttpAnswer ViewService::Tracks() const {
  std::map<int, json> tracks;
  for (const LiveServer& server : engine_.Servers()) {
    for (const Track& track : server.tracks)
      tracks[track.index] = ToJson(track, engine_.MarksOf(track.index));
  }
  json list = json::array();
  for (auto& [index, track] : tracks)
    list.push_back(std::move(track));
  return ToAnswer({{"tracks", list}});
}

HttpAnswer ViewService::Figures() const {
  const LiveEngine::Figures figures = engine_.CurrentFigures();
  const FetchFigures& fetching = figures.fetching;
  json servers = json::array();
  for (const FetchFigures::Server& server : fetching.servers)
    servers.push_back({{"name", server.name}, {"failure", server.failure}});
  return ToAnswer({{"latencyP50Ms", figures.latencyP50Ms},
                   {"latencyP99Ms", figures.latencyP99Ms},
                   {"decodeMs", figures.decodeP50Ms},
                   {"pictures", figures.pictures},
                   {"orders", fetching.orders},
                   {"stale", fetching.stale},
                   {"cacheHits", fetching.cacheHits},
                   {"cacheSamples", fetching.cacheSamples},
                   {"cacheBytes", fetching.cacheBytes},
                   {"cacheMaxBytes", fetching.cacheMaxBytes},
                   {"reads", fetching.reads},
                   {"bytesRead", fetching.bytesRead},
                   {"secondsReading", fetching.secondsReading},
                   {"servers", servers}});
}

HttpAnswer ViewService::SampleAt(const HttpRequest& request) const {
  const Track& track = TrackOf(request);
  const std::string text = request.Argument("time").value_or("");
  if (IsFileTimecode(text))
    return ToAnswer({{"sample", SampleOfFileTimecode(text, track)}});
  const int64_t sample = SampleOf(ParseTimeArgument("time", text), track);
  if (sample >= track.sampleCount)
    throw BadRequest(text + ": the last picture is at " + ToTimeCode(track, track.sampleCount - 1));
  return ToAnswer({{"sample", sample}});
}

HttpAnswer ViewService::Picture(const HttpRequest& request) {
  const Track& track = TrackOf(request);
  LiveOrder order = ReadOrder(request, track);
  constexpr size_t kFrame = 0;
  constexpr size_t kBottom = 2;
  const size_t field = WordParameter(request, "field", {"frame", "top", "bottom"});
  const std::string timecode = FileTimecodeOf(track, order.key.sample);
  const bool weaves = track.interlaced && field == kFrame;
  order.bottom = track.interlaced && field == kBottom;
  if (track.LastsNoTime(order.key.sample))  // an order for its time brings the next one
    return Describe({.state = State::Missing, .reason = "the track shows it for no time"},
                    timecode);
  std::future<LivePicture> first = engine_.Order(order);
  LivePicture second;
  if (weaves) {
    order.bottom = true;
    second = engine_.Order(order).get();
  }
  LivePicture picture = first.get();
  if (weaves && (second.state == State::Stale || second.state == State::Failed)) {
    picture = std::move(second);
    second = {};
  } else if (weaves && picture.state != State::Stale && picture.state != State::Failed &&
             (picture.image == nullptr) != (second.image == nullptr)) {
    const bool isTop = picture.image != nullptr;
    picture = WithoutOtherField(std::move(isTop ? picture : second), isTop ? "bottom" : "top");
    second = {};
  }
  if (picture.image && second.state == State::Damaged) {
    picture.state = State::Damaged;
    picture.reason = second.reason;
  }
  HttpAnswer answer = Describe(picture, timecode);
  if (!picture.image)
    return answer;
  return Weave(std::move(picture), std::move(second), std::move(answer));
}

}  // namespace Moravel::Play
