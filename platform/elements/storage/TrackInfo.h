#pragma once

#include <memory>
#include <string>
#include <utility>

#include "elements/storage/TrackIndex.h"
#include "qelCore/StreamInfos.h"

namespace qel {

// A stream of a track as the storage source describes it, with all that is known of the track. A
// host that wants more than IVideoInfo tells finds it by std::dynamic_pointer_cast. Immutable.
class TrackInfo : public VideoInfo {
 public:
  TrackInfo(std::string streamId, std::shared_ptr<const TrackIndex> index)
      : VideoInfo(std::move(streamId), index->Facts().width, index->Facts().height, index->Count(),
                  index->Facts().nominalRate),
        index_(std::move(index)) {}

  // Never empty. Any number of threads may read it, also when the source is gone.
  const std::shared_ptr<const TrackIndex>& Index() const { return index_; }

 private:
  const std::shared_ptr<const TrackIndex> index_;
};

}  // namespace qel
