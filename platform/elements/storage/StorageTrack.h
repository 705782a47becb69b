#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "elements/MemoryPool.h"
#include "elements/storage/HttpFile.h"
#include "elements/storage/SampleRun.h"
#include "elements/storage/TrackIndex.h"

namespace qel {

// An open track: its index, and the reading of its samples. A sample out of the blue is one request
// of exactly its bytes; samples in sequence share requests, which cover the more samples the longer
// the sequence goes on, and arrive while nobody asks. Used by one thread at a time.
//
// Failures are QELRuntimeError that names the track; the next call starts afresh.
class StorageTrack {
 public:
  // Reads the index. The client outlives the track.
  StorageTrack(HttpClient& client, std::shared_ptr<MemoryPool> pool, int64_t trackId);
  ~StorageTrack();

  // "track ADDRESS:PORT:Tn"
  const std::string& Name() const { return name_; }
  // Never empty; another one after Reopen.
  const std::shared_ptr<const TrackIndex>& Index() const { return index_; }

  // Reads the index of the file that the server has now. After a failure the track is of no use.
  void Reopen();

  // The bytes of a sample, none of one that was dropped. Throws FileChangedError when the file is
  // not the one that was indexed.
  std::optional<SampleBytes> Read(int64_t number);

  // Whether a request is under way that covers samples not asked for yet, and when the track was
  // read last.
  bool IsStreaming() const { return run_ != nullptr; }
  std::chrono::steady_clock::time_point LastRead() const { return lastRead_; }
  void StopStreaming();

 private:
  template <typename Function>
  auto Named(Function function);
  SampleBytes ReadStored(int64_t number);
  void CheckPlace(int64_t number) const;
  void StartRun(int64_t number);

  const std::string name_;
  const std::shared_ptr<MemoryPool> pool_;
  const std::chrono::milliseconds maxIdle_;
  HttpFile file_;
  std::shared_ptr<const TrackIndex> index_;
  std::unique_ptr<SampleRun> run_;
  std::unique_ptr<HttpTransfer> transfer_;  // of the run
  int64_t runSamples_ = 0;                  // that the next request of a sequence may cover
  int64_t successor_ = -1;                  // of the sample that was read last
  int64_t sequenceLength_ = 0;              // samples that followed each other up to that one
  std::chrono::steady_clock::time_point lastRead_;
};

}  // namespace qel
