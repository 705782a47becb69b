#pragma once

#include <cstdint>
#include <string>

#include "Player/StorageId.h"
#include "qel/Export.h"

namespace Moravel::Player {

// One track of a storage server. A value.
class QEL_API TrackId {
 public:
  TrackId() = default;
  TrackId(Moravel::Player::StorageId storageId, int64_t id);

  const Moravel::Player::StorageId& StorageId() const { return storageId_; }
  int64_t Id() const { return id_; }

  // The storage's text, ":T" and the track number.
  std::string ToString() const;

  bool operator<(const TrackId& other) const;
  bool operator==(const TrackId& other) const = default;

  Moravel::Player::StorageId storageId_;
  int64_t id_ = 0;
};

}  // namespace Moravel::Player
