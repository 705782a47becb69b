#include "elements/storage/HttpFile.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <utility>

#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

// Enough for the header of most files and the beginning of their first picture.
constexpr int64_t kHeaderBytes = 16 << 10;
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

// Bytes that are kept, on their way or here: as many as the file has of those asked for. Those that
// nobody waits for are held back, so that the link is free for others.
struct HttpFile::Part : IRangeReceiver {
  Part(HttpClient& client, CURLU* url, const ByteRange& asked, int64_t wanted)
      : range(asked), awaited(wanted), transfer(client, url, asked, nullptr, *this) {}

  // Returns when so many are there, or all.
  void Await(int64_t count, HttpClient::Duration until = HttpClient::Duration::max()) {
    awaited = std::max(awaited, count);
    transfer.Receive(until);
  }

  bool Take(std::span<const uint8_t> more) override {
    if (HasEnough())
      return false;
    if (bytes.empty())
      bytes.reserve(static_cast<size_t>(range.Inside(transfer.Version().size).size));
    bytes.insert(bytes.end(), more.begin(), more.end());
    return true;
  }
  bool HasEnough() const override { return static_cast<int64_t>(bytes.size()) >= awaited; }

  const ByteRange range;
  int64_t awaited;
  std::vector<uint8_t> bytes;
  HttpTransfer transfer;
};

HttpFile::HttpFile(HttpClient& client, int64_t trackId)
    : client_(client), url_(client.Address().TrackUrl(trackId)) {}

HttpFile::~HttpFile() = default;

void HttpFile::Open(bool withIndex, int64_t beginning) {
  openUntil_ = client_.Listened() + client_.Limits().open;
  DropBeginning();
  end_.reset();
  if (withIndex)  // first, as a slow link gives what it is asked for in that order
    end_ = std::make_unique<Part>(client_, url_.get(), ByteRange::Last(kEndBytes), kEndBytes);
  beginning_ = std::make_unique<Part>(
      client_, url_.get(), ByteRange{0, std::max(beginning, kHeaderBytes)}, kHeaderBytes);
  isBeginningKept_ = beginning > 0;
  beginning_->Await(kHeaderBytes, openUntil_);
  version_ = beginning_->transfer.Version();
  cost_ = {withIndex ? 2 : 1, 0};
}

void HttpFile::EndIndex() {
  end_.reset();
  if (!isBeginningKept_)
    DropBeginning();
}

ReadCost HttpFile::Cost() const {
  ReadCost cost = cost_;
  for (const auto* part : {&beginning_, &end_}) {
    if (*part)
      cost.bytes += static_cast<int64_t>((*part)->bytes.size());
  }
  return cost;
}

bool HttpFile::BeginningHolds(const ByteRange& range) const {
  if (!beginning_ || range.offset < 0 || range.End() > beginning_->range.Inside(Size()).End())
    return false;
  return !beginning_->transfer.IsOver() ||
         range.End() <= static_cast<int64_t>(beginning_->bytes.size());
}

std::span<const uint8_t> HttpFile::Beginning(const ByteRange& range) {
  beginning_->Await(range.End());
  client_.Perform();  // what was asked for meanwhile is under way, even if all of this was here
  return std::span<const uint8_t>(beginning_->bytes)
      .subspan(static_cast<size_t>(range.offset), static_cast<size_t>(range.size));
}

void HttpFile::DropBeginning() {
  beginning_.reset();
}

int64_t HttpFile::BeginningBytes() const {
  return beginning_ ? beginning_->range.Inside(Size()).size : 0;
}

bool HttpFile::IsBeginningUnderWay() const {
  return beginning_ && !beginning_->transfer.IsOver();
}

// A short file lies in both its beginning and its end, of which one comes later.
bool HttpFile::IsHere(const FilePart& part) const {
  return beginning_ && part.offset + static_cast<int64_t>(part.bytes.size()) <=
                           static_cast<int64_t>(beginning_->bytes.size());
}

FilePart HttpFile::WithoutBeginning(FilePart part) {
  const int64_t inside = std::clamp<int64_t>(BeginningBytes() - part.offset, 0,
                                             static_cast<int64_t>(part.bytes.size()));
  if (inside > 0) {
    beginning_->Await(part.offset + inside, openUntil_);
    std::memcpy(part.bytes.data(), beginning_->bytes.data() + part.offset,
                static_cast<size_t>(inside));
  }
  return {part.offset + inside, part.bytes.subspan(static_cast<size_t>(inside))};
}

// Not every server knows what the last bytes are: without them, or when they are another version's,
// those that are wanted are asked for by their place, and what is wrong is told then.
bool HttpFile::ReadEnd(const FilePart& part) {
  const int64_t begin = ByteRange::Last(kEndBytes).Inside(Size()).offset;
  if (!end_ || part.offset < begin)
    return false;
  try {
    end_->Await(kEndBytes, openUntil_);
  } catch (const QELRuntimeError&) {
    cost_.bytes += static_cast<int64_t>(end_->bytes.size());
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
    if (!IsHere(wanted) && ReadEnd(wanted))
      continue;
    const FilePart part = WithoutBeginning(wanted);
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
