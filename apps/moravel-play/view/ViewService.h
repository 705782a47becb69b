#pragma once

#include <optional>
#include <string>

#include "live/LiveEngine.h"
#include "view/Gate.h"
#include "view/LoopbackServer.h"

namespace Moravel::Play {

// What the page asks for, behind a gate of its own. Any threads.
//
//   ""               the page; view.css, view.js, ... its files
//   tracks           JSON: what the tracks are, and the marks met so far
//   times?track=     JSON: when the samples of a track of variable rate are shown
//   figures          JSON: what the engine does
//   sample?track=&time=          JSON: the sample of a time as --start takes it, or of a time code
//                                of the file ("TC 10:00:05:12")
//   picture?track=&sample=&scale=&field=&kind=&step=&lane=&generation=
//                    a picture as JPEG, its size divided by the scale; its headers tell the state
//                    and the file's time code
//
// A parameter that is missing or wrong is 400, with a line that says what would be right.
class ViewService {
 public:
  // The engine outlives the service.
  explicit ViewService(LiveEngine& engine) : engine_(engine) {}

  // Of the page, when it is served at that port.
  std::string Address(uint16_t port) const { return gate_.Address(port); }

  HttpAnswer Answer(const HttpRequest& request, uint16_t port);

 private:
  HttpAnswer Admitted(const HttpRequest& request, const std::string& what);
  HttpAnswer Tracks() const;
  HttpAnswer Figures() const;
  HttpAnswer SampleAt(const HttpRequest& request) const;
  HttpAnswer Picture(const HttpRequest& request);
  const Track& TrackOf(const HttpRequest& request) const;

  const Gate gate_;
  LiveEngine& engine_;
};

}  // namespace Moravel::Play
