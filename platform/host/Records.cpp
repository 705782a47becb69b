#include <compare>
#include <functional>
#include <tuple>
#include <utility>

#include "Player/PreloadOrder.h"
#include "Player/StorageId.h"
#include "Player/TrackId.h"

namespace Moravel::Player {

StorageId::StorageId(std::string address, int64_t port)
    : address_(std::move(address)), port_(port) {}

std::string StorageId::ToString() const {
  const bool bracketed = address_.find(':') != std::string::npos;
  return (bracketed ? "[" + address_ + "]" : address_) + ":" + std::to_string(port_);
}

bool StorageId::operator<(const StorageId& other) const {
  return std::tie(address_, port_) < std::tie(other.address_, other.port_);
}

TrackId::TrackId(Moravel::Player::StorageId storageId, int64_t id)
    : storageId_(std::move(storageId)), id_(id) {}

std::string TrackId::ToString() const {
  return storageId_.ToString() + ":T" + std::to_string(id_);
}

bool TrackId::operator<(const TrackId& other) const {
  return std::tie(storageId_, id_) < std::tie(other.storageId_, other.id_);
}

PreloadOrder::PreloadOrder(const Time::TimePoint& tp, const SampleRate& s, CacheUpdateQueue* queue,
                           const TrackId& id)
    : tp_(tp), s_(s), queue_(queue), id_(id) {}

PreloadOrder::~PreloadOrder() = default;

void PreloadOrder::Set(const Time::TimePoint& tp, const SampleRate& s, CacheUpdateQueue* queue,
                       const TrackId& id) {
  tp_ = tp;
  s_ = s;
  queue_ = queue;
  id_ = id;
}

bool PreloadOrder::operator==(const PreloadOrder& other) const {
  return priority_ == other.priority_ && tp_ == other.tp_ && s_ == other.s_ &&
         queue_ == other.queue_ && id_ == other.id_;
}

bool PreloadOrder::operator<(const PreloadOrder& other) const {
  if (priority_ != other.priority_)
    return priority_ > other.priority_;
  if (tp_ != other.tp_)
    return tp_ < other.tp_;
  if (queue_ != other.queue_)
    return std::less<>()(queue_, other.queue_);
  const auto rate = [](const PreloadOrder& order) {
    return std::pair(order.s_.Numerator(), order.s_.Denominator());
  };
  if (rate(*this) != rate(other))
    return rate(*this) < rate(other);
  return id_ < other.id_;
}

}  // namespace Moravel::Player
