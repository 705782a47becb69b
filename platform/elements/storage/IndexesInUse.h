#pragma once

#include <functional>
#include <memory>
#include <string>

#include "elements/storage/HttpResponse.h"
#include "elements/storage/TrackIndex.h"

namespace qel {

// The index of that version of a track: one that somebody in this process holds, or else what
// `read` returns. Sources of several preloaders of one server so read and keep an index once. It
// lives as long as anybody holds it. A version without a strong ETag is read always. `track` names
// the track and its server ("ADDRESS:PORT:Tn").
//
// Thread-safe. Nobody waits for the reading of somebody else. Throws what `read` throws.
std::shared_ptr<const TrackIndex> ShareIndex(const std::string& track, const FileVersion& version,
                                             const std::function<TrackIndex()>& read);

// Whether somebody holds the index of a version of the track, most likely the one that its server
// has. Thread-safe.
bool IsIndexInUse(const std::string& track);

}  // namespace qel
