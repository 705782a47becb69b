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

// One track's file on a storage server. Its index lies at its beginning or at its end, and a server
// that is far away is asked for both at once; the first samples may come with the beginning. All
// answers belong to one version of it: the one that Open found. Failures are QELRuntimeError that
// says what the server did and what would be right; the next request starts afresh. Used by one
// thread at a time, the client's.
class HttpFile : public IFileBytes {
 public:
  // The client outlives the file.
  HttpFile(HttpClient& client, int64_t trackId);
  ~HttpFile() override;

  // Finds the version that the server has now. With its index, the last bytes are asked for too.
  // `beginning`: so many first bytes are asked for, or those of most headers when 0. All transfers
  // of an earlier version are over.
  void Open(bool withIndex, int64_t beginning = 0);
  // No more ReadAt before the next Open: lets go what was kept for it.
  void EndIndex();

  // That Open found.
  const FileVersion& Version() const { return version_; }
  int64_t Size() const override { return version_.size; }
  // For the index: within the time that opening may take, and the number of requests.
  void ReadAll(std::span<const FilePart> parts) override;
  // Since Open.
  ReadCost Cost() const override;

  // Bytes between two ranges that are better read than asked around with a request more, of so many
  // that are under way.
  int64_t GapWorthReading(int requests) { return client_.Link().BytesInsteadOfARequest(requests); }

  // The beginning that Open was told to ask for, on its way or here: whether it holds these bytes,
  // which are then waited for, and what it takes.
  bool HasBeginning() const { return beginning_ != nullptr; }
  bool BeginningHolds(const ByteRange& range) const;
  std::span<const uint8_t> Beginning(const ByteRange& range);
  void DropBeginning();
  int64_t BeginningBytes() const;
  bool IsBeginningUnderWay() const;

  // Asks for a range. The file is neither opened again nor destroyed while the transfer lives.
  std::unique_ptr<HttpTransfer> Start(const ByteRange& range, IRangeReceiver& receiver);

 private:
  struct Part;

  bool IsHere(const FilePart& part) const;
  FilePart WithoutBeginning(FilePart part);
  bool ReadEnd(const FilePart& part);
  void CountRequest(int64_t bytes);

  HttpClient& client_;
  const CurlUrl url_;
  FileVersion version_;
  std::unique_ptr<Part> beginning_;  // empty when it is of no use any more
  bool isBeginningKept_ = false;     // behind EndIndex
  std::unique_ptr<Part> end_;        // empty when it is of no use
  HttpClient::Duration openUntil_{};
  ReadCost cost_;  // without their bytes
};

}  // namespace qel
