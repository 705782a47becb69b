#include "elements/storage/HttpFile.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <utility>

#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

// Enough for the header of most files and the beginning of their first picture.
constexpr int64_t kHeadBytes = 16 << 10;
// Enough for the index of two or three minutes.
constexpr int64_t kEndBytes = 64 << 10;

// Requests for parts of an index under way.
constexpr size_t kMostAtOnce = 16;

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

}  // namespace

// Bytes that are kept, on their way or here: as many as the file has of those asked for.
struct HttpFile::Part : IRangeReceiver {
  Part(HttpClient& client, CURLU* url, const ByteRange& range)
      : transfer(client, url, range, nullptr, *this) {}

  bool Take(std::span<const uint8_t> more) override {
    bytes.insert(bytes.end(), more.begin(), more.end());
    return true;
  }
  bool HasEnough() const override { return false; }

  std::vector<uint8_t> bytes;
  HttpTransfer transfer;
};

HttpFile::HttpFile(HttpClient& client, int64_t trackId)
    : client_(client), url_(client.Address().TrackUrl(trackId)) {}

HttpFile::~HttpFile() = default;

void HttpFile::Open(bool withIndex) {
  openUntil_ = client_.Listened() + client_.Limits().open;
  EndIndex();
  Part head(client_, url_.get(), {0, kHeadBytes});
  if (withIndex)
    end_ = std::make_unique<Part>(client_, url_.get(), ByteRange::Last(kEndBytes));
  head.transfer.Receive(openUntil_);
  version_ = head.transfer.Version();
  head_ = std::move(head.bytes);
  cost_ = {1, static_cast<int64_t>(head_.size())};
}

void HttpFile::EndIndex() {
  end_.reset();
  head_ = {};
}

ReadCost HttpFile::Cost() const {
  if (!end_)
    return cost_;
  return {cost_.requests + 1, cost_.bytes + static_cast<int64_t>(end_->bytes.size())};
}

FilePart HttpFile::WithoutHead(FilePart part) const {
  const int64_t inHead = std::clamp<int64_t>(static_cast<int64_t>(head_.size()) - part.offset, 0,
                                             static_cast<int64_t>(part.bytes.size()));
  if (inHead > 0)
    std::memcpy(part.bytes.data(), head_.data() + part.offset, static_cast<size_t>(inHead));
  return {part.offset + inHead, part.bytes.subspan(static_cast<size_t>(inHead))};
}

// Not every server knows what the last bytes are: without them, or when they are another version's,
// those that are wanted are asked for by their place, and what is wrong is told then.
bool HttpFile::ReadEnd(const FilePart& part) {
  const int64_t begin = ByteRange::Last(kEndBytes).Inside(Size()).offset;
  if (!end_ || part.offset < begin)
    return false;
  try {
    end_->transfer.Receive(openUntil_);
  } catch (const QELRuntimeError&) {
    cost_ = Cost();
    end_.reset();
    return false;
  }
  if (end_->transfer.Version() != version_)
    return false;
  std::memcpy(part.bytes.data(), end_->bytes.data() + (part.offset - begin), part.bytes.size());
  return true;
}

void HttpFile::CountRequest(int64_t bytes) {
  cost_.bytes += bytes;
  if (++cost_.requests > kMaxIndexRequests) {
    throw QELRuntimeError(QEL_TEXT(
        "the index takes more than the "
        << kMaxIndexRequests
        << " requests allowed: \"ffmpeg -i FILE -c copy OUT.mov\" writes it into one place"));
  }
}

void HttpFile::ReadAll(std::span<const FilePart> parts) {
  struct Reading {
    Reading(HttpFile& file, const FilePart& part)
        : receiver(part.bytes),
          transfer(file.Start({part.offset, static_cast<int64_t>(part.bytes.size())}, receiver)) {}

    BlockReceiver receiver;
    const std::unique_ptr<HttpTransfer> transfer;
  };
  std::deque<Reading> readings;
  const auto receiveFirst = [&] {
    readings.front().transfer->Receive(openUntil_);
    readings.pop_front();
  };
  for (const FilePart& wanted : parts) {
    const FilePart part = WithoutHead(wanted);
    if (part.bytes.empty() || ReadEnd(part))
      continue;
    if (readings.size() == kMostAtOnce)
      receiveFirst();
    CountRequest(static_cast<int64_t>(part.bytes.size()));
    readings.emplace_back(*this, part);
  }
  while (!readings.empty())
    receiveFirst();
}

std::unique_ptr<HttpTransfer> HttpFile::Start(const ByteRange& range, IRangeReceiver& receiver) {
  return std::make_unique<HttpTransfer>(client_, url_.get(), range, &version_, receiver);
}

}  // namespace qel
