#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "elements/MemoryPool.h"
#include "elements/storage/HttpFile.h"
#include "elements/storage/ReadAhead.h"
#include "elements/storage/TrackIndex.h"

namespace qel {

// An open track: its index, and the reading of its samples (see ReadAhead). Used by one thread at a
// time.
//
// Failures are QELRuntimeError that names the track; the next call starts afresh.
class StorageTrack {
 public:
  // Reads the index, and as much of the file's beginning for the samples in it. The client outlives
  // the track.
  StorageTrack(HttpClient& client, std::shared_ptr<MemoryPool> pool, int64_t trackId,
               int64_t beginning);

  // "track ADDRESS:PORT:Tn"
  const std::string& Name() const { return name_; }
  // Never empty; another one after Reopen.
  const std::shared_ptr<const TrackIndex>& Index() const { return index_; }

  // Reads the index of the file that the server has now. After a failure the track is of no use.
  void Reopen() { Open(0); }

  // The bytes of a sample, none of one that was dropped. Throws FileChangedError when the file is
  // not the one that was indexed.
  std::optional<SampleBytes> Read(int64_t number, const ReadAheadShare& share);

  // Gives up what was read ahead, and what that takes.
  void StopReadingAhead() { readAhead_->Stop(); }
  int64_t Bytes() const { return readAhead_->Bytes(); }
  int Transfers() const { return readAhead_->Transfers(); }
  // Or opened.
  std::chrono::steady_clock::time_point LastRead() const { return lastRead_; }

 private:
  void Open(int64_t beginning);
  template <typename Function>
  auto Named(Function function);

  const std::string name_;
  const std::shared_ptr<MemoryPool> pool_;
  const std::chrono::milliseconds maxIdle_;
  HttpFile file_;
  std::shared_ptr<const TrackIndex> index_;
  std::unique_ptr<ReadAhead> readAhead_;  // with that index
  std::chrono::steady_clock::time_point lastRead_;
};

}  // namespace qel
