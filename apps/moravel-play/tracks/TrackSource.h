#pragma once

#include "qel/Elements.h"
#include "tracks/NamedTracks.h"
#include "tracks/Track.h"

namespace Moravel::Play {

// One storage source, which is made for the first track that can be opened and is then set to the
// others of its server. Used by one thread at a time.
class TrackSource {
 public:
  // Sets the source to the track, and opens it when it is not open. Throws what the framework
  // throws.
  void Select(const Player::TrackId& id);

  // Empty until a track was opened.
  const qel::MediaSourcePtr& Media() const { return media_; }
  const qel::SourceControlPtr& Control() const { return control_; }

 private:
  qel::MediaSourcePtr media_;
  qel::SourceControlPtr control_;
};

// What the selected source tells of the track; what is played of it stays open. Throws
// std::runtime_error when there is nothing to play.
Track DescribeTrack(const NamedTrack& named, const qel::InfoContainerConstPtr& output);

}  // namespace Moravel::Play
