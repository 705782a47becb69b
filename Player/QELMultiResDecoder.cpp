#include "Player/QELMultiResDecoder.h"

#include <boost/thread/locks.hpp>
#include <ostream>

#include "Player/HostLog.h"
#include "logging/LoggingManager.h"

namespace Moravel::Player {

namespace {

using orl::mv::logging::ILogger;

// The time point of a sample for a message; there may be no sample.
struct TimeOf {
  const ISample* sample;
};

std::ostream& operator<<(std::ostream& stream, const TimeOf& time) {
  if (time.sample == nullptr)
    return stream << "unknown time";
  return stream << time.sample->GetTimePoint();
}

}  // namespace

QELMultiResDecoder::QELMultiResDecoder()
    : logger_(orl::mv::logging::LoggingManager::GetLogger("QELMultiResDecoder")) {}

QELMultiResDecoder::~QELMultiResDecoder() = default;

template <typename Lock>
Lock QELMultiResDecoder::Acquire() {
  const std::lock_guard<std::mutex> lock(gate_);
  return Lock(decodersAccess_);
}

ISample* QELMultiResDecoder::Decode(const DecodeOrder& order) {
  const auto lock = Acquire<boost::shared_lock<boost::shared_mutex>>();
  const auto entry = decoders_.find({order.width_, order.height_});
  if (entry != decoders_.end())
    return entry->second->Decode(order);
  PLAYER_LOG(&logger_, ILogger::Level_Warning,
             "Could not find an QEL decoder for sample at "
                 << TimeOf{order.toDecode_} << " with resolution " << order.width_ << "x"
                 << order.height_);
  return nullptr;
}

void QELMultiResDecoder::AddDecoder(int width, int height, QELSampleDecoder* decoder) {
  if (decoder == nullptr) {
    PLAYER_LOG(&logger_, ILogger::Level_Warning,
               "AddDecoder: ignored a null decoder for resolution " << width << "x" << height);
    return;
  }
  const auto lock = Acquire<boost::unique_lock<boost::shared_mutex>>();
  decoders_.try_emplace({width, height}, decoder);
}

void QELMultiResDecoder::RemoveDecoder(int width, int height) {
  const auto lock = Acquire<boost::unique_lock<boost::shared_mutex>>();
  decoders_.erase({width, height});
}

}  // namespace Moravel::Player
