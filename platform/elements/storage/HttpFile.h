#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "elements/storage/FileBytes.h"
#include "elements/storage/HttpClient.h"
#include "elements/storage/HttpTransfer.h"

namespace qel {

// Requests for the index of one track: a file of a TiB has about as many segments with one of their
// own.
constexpr int kMaxIndexRequests = 1024;

// One track's file on a storage server. All answers belong to one version of it: the one that Open
// found. Failures are QELRuntimeError that says what the server did and what would be right; the
// next request starts afresh. Used by one thread at a time, the client's.
class HttpFile : public IFileBytes {
 public:
  // The client outlives the file.
  HttpFile(HttpClient& client, int64_t trackId);

  // Finds the version that the server has now, and keeps its first bytes for ReadAt. All transfers
  // of an earlier version are over.
  void Open();

  // That Open found.
  const FileVersion& Version() const { return version_; }
  int64_t Size() const override { return version_.size; }
  // For the index: within the time that opening may take, and the number of requests.
  void ReadAt(int64_t offset, std::span<uint8_t> bytes) override;

  // Bytes between two ranges that are better read than asked around with a request more, of so many
  // that are under way.
  int64_t GapWorthReading(int requests) { return client_.Link().BytesInsteadOfARequest(requests); }

  // Asks for a range. The file is neither opened again nor destroyed while the transfer lives.
  std::unique_ptr<HttpTransfer> Start(const ByteRange& range, IRangeReceiver& receiver);

 private:
  HttpClient& client_;
  const CurlUrl url_;
  FileVersion version_;
  std::vector<uint8_t> head_;
  HttpClient::Duration openUntil_{};
  int requests_ = 0;
};

}  // namespace qel
