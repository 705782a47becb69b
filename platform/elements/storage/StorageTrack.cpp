#include "elements/storage/StorageTrack.h"

#include <algorithm>
#include <utility>

#include "elements/storage/Printable.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

// Samples that followed each other before more are asked for: two may do so by chance.
constexpr int64_t kSequenceSamples = 3;
// The first request of a sequence covers that many samples, each next one that many times more:
// a request costs a round trip, and a jump leaves behind only what the kernel's buffers hold.
constexpr int64_t kRunGrowth = 32;
constexpr int64_t kMaxRunSamples = 65536;

}  // namespace

StorageTrack::StorageTrack(HttpClient& client, std::shared_ptr<MemoryPool> pool, int64_t trackId)
    : name_("track " + client.Address().TrackName(trackId)),
      pool_(std::move(pool)),
      maxIdle_(client.Limits().stall),
      file_(client, trackId) {
  Reopen();
}

StorageTrack::~StorageTrack() {
  StopStreaming();
}

// Puts the track's name in front of what went wrong. Servers and files have a say in these texts.
template <typename Function>
auto StorageTrack::Named(Function function) {
  try {
    return function();
  } catch (const FileChangedError& error) {
    throw FileChangedError(name_ + ": " + Printable(error.what()));
  } catch (const QELRuntimeError& error) {
    throw QELRuntimeError(name_ + ": " + Printable(error.what()));
  }
}

void StorageTrack::Reopen() {
  StopStreaming();
  successor_ = -1;
  Named([this] {
    file_.Open();
    index_ = std::make_shared<const TrackIndex>(ReadTrackIndex(file_));
  });
}

void StorageTrack::StopStreaming() {
  transfer_.reset();
  run_.reset();
}

std::optional<SampleBytes> StorageTrack::Read(int64_t number) {
  const auto now = std::chrono::steady_clock::now();
  const bool isStale = now - std::exchange(lastRead_, now) > maxIdle_;
  sequenceLength_ = std::exchange(successor_, number + 1) == number ? sequenceLength_ + 1 : 1;
  if (index_->At(number).size == 0)
    return std::nullopt;
  if (run_ && (isStale || run_->Next() != number))
    StopStreaming();
  try {
    return Named([=, this] { return ReadStored(number); });
  } catch (...) {
    StopStreaming();
    successor_ = -1;
    throw;
  }
}

SampleBytes StorageTrack::ReadStored(int64_t number) {
  if (!run_) {
    CheckPlace(number);
    const bool goesOn = sequenceLength_ >= kSequenceSamples;
    runSamples_ = goesOn ? std::min(runSamples_ * kRunGrowth, kMaxRunSamples) : 1;
    StartRun(number);
  }
  transfer_->Receive();
  SampleBytes sample = run_->TakeSample();
  if (run_->IsAtEnd())
    StopStreaming();
  return sample;
}

void StorageTrack::CheckPlace(int64_t number) const {
  const TrackIndex::Sample sample = index_->At(number);
  if (sample.size > MaxSampleBytes(*index_)) {
    throw QELRuntimeError(QEL_TEXT("sample " << number << " of " << sample.size
                                             << " bytes is larger than the "
                                             << MaxSampleBytes(*index_) << " that are read"));
  }
  const int64_t header = index_->isAvi ? TrackIndex::kAviChunkHeaderBytes : 0;
  if (sample.offset < header || sample.offset > file_.Size() - sample.size) {
    throw QELRuntimeError(QEL_TEXT("the file is truncated: sample " << number << " ends at byte "
                                                                    << sample.offset + sample.size
                                                                    << " of " << file_.Size()));
  }
}

void StorageTrack::StartRun(int64_t number) {
  run_ = std::make_unique<SampleRun>(*index_, file_.Size(), number, runSamples_, *pool_);
  transfer_ = file_.Start(run_->Range(), *run_);
}

}  // namespace qel
