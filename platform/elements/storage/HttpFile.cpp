#include "elements/storage/HttpFile.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

// Enough for the header of most files and the beginning of their first picture.
constexpr int64_t kHeadBytes = 16 << 10;

// Fills a block of memory.
class BlockReceiver : public IRangeReceiver {
 public:
  explicit BlockReceiver(std::span<uint8_t> block) : rest_(block) {}

  bool Take(std::span<const uint8_t> bytes) override {
    const size_t count = std::min(bytes.size(), rest_.size());
    std::memcpy(rest_.data(), bytes.data(), count);
    rest_ = rest_.subspan(count);
    return true;
  }
  bool HasEnough() const override { return rest_.empty(); }

 private:
  std::span<uint8_t> rest_;
};

// Collects what comes, which may be less than was asked for.
class HeadReceiver : public IRangeReceiver {
 public:
  explicit HeadReceiver(std::vector<uint8_t>& head) : head_(head) {}

  bool Take(std::span<const uint8_t> bytes) override {
    head_.insert(head_.end(), bytes.begin(), bytes.end());
    return true;
  }
  bool HasEnough() const override { return false; }

 private:
  std::vector<uint8_t>& head_;
};

}  // namespace

HttpFile::HttpFile(HttpClient& client, int64_t trackId)
    : client_(client), url_(client.Address().TrackUrl(trackId)) {}

void HttpFile::Open() {
  openUntil_ = client_.Listened() + client_.Limits().open;
  requests_ = 1;
  head_.clear();
  HeadReceiver receiver(head_);
  HttpTransfer transfer(client_, url_.get(), {0, kHeadBytes}, nullptr, receiver);
  transfer.Receive(openUntil_);
  version_ = transfer.Version();
}

void HttpFile::ReadAt(int64_t offset, std::span<uint8_t> bytes) {
  const int64_t inHead = std::clamp<int64_t>(static_cast<int64_t>(head_.size()) - offset, 0,
                                             static_cast<int64_t>(bytes.size()));
  if (inHead > 0)
    std::memcpy(bytes.data(), head_.data() + offset, static_cast<size_t>(inHead));
  bytes = bytes.subspan(static_cast<size_t>(inHead));
  if (bytes.empty())
    return;
  if (++requests_ > kMaxIndexRequests) {
    throw QELRuntimeError(QEL_TEXT(
        "the index takes more than the "
        << kMaxIndexRequests
        << " requests allowed: \"ffmpeg -i FILE -c copy OUT.mov\" writes it into one place"));
  }
  BlockReceiver receiver(bytes);
  Start({offset + inHead, static_cast<int64_t>(bytes.size())}, receiver)->Receive(openUntil_);
}

std::unique_ptr<HttpTransfer> HttpFile::Start(const ByteRange& range, IRangeReceiver& receiver) {
  return std::make_unique<HttpTransfer>(client_, url_.get(), range, &version_, receiver);
}

}  // namespace qel
