#include "elements/storage/StorageTrack.h"

#include <utility>

#include "elements/storage/FileFault.h"
#include "elements/storage/IndexesInUse.h"
#include "qel/WorkflowStepImplementation.h"
#include "qelCore/Printable.h"

namespace qel {

StorageTrack::StorageTrack(HttpClient& client, std::shared_ptr<MemoryPool> pool, int64_t trackId,
                           int64_t beginning)
    : name_("track " + client.Address().TrackName(trackId)),
      pool_(std::move(pool)),
      maxIdle_(client.Limits().stall),
      file_(client, trackId) {
  Open(beginning);
}

// Puts the track's name in front of what went wrong. Servers and files have a say in these texts.
template <typename Function>
auto StorageTrack::Named(Function function) {
  try {
    return function();
  } catch (const FileChangedError& error) {
    throw FileChangedError(name_ + ": " + Printable(error.what()));
  } catch (const FileFaultError& error) {
    throw FileFaultError(name_ + ": " + Printable(error.what()));
  } catch (const QELRuntimeError& error) {
    throw QELRuntimeError(name_ + ": " + Printable(error.what()));
  }
}

void StorageTrack::Open(int64_t beginning) {
  readAhead_.reset();
  Named([&] {
    const bool isFirst = !IsIndexInUse(name_);
    file_.Open(isFirst, isFirst ? beginning : 0);
    index_ = ShareIndex(name_, file_.Version(), [this] { return ReadTrackIndex(file_); });
    file_.EndIndex();
  });
  readAhead_ = std::make_unique<ReadAhead>(file_, *index_, *pool_);
  lastRead_ = std::chrono::steady_clock::now();
}

std::optional<SampleBytes> StorageTrack::Read(int64_t number, const ReadAheadShare& share) {
  const auto now = std::chrono::steady_clock::now();
  if (now - std::exchange(lastRead_, now) > maxIdle_)
    readAhead_->Stop();  // a server does not wait for long
  return Named([&, this] { return readAhead_->Read(number, share); });
}

}  // namespace qel
