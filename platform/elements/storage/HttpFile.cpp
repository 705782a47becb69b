#include "elements/storage/HttpFile.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <stop_token>
#include <string_view>
#include <utility>

#include "elements/StopScope.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr long kMaxRedirects = 3;
constexpr long kReceiveBufferBytes = 512 << 10;
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

CURL* CreateEasy() {
  CURL* const easy = curl_easy_init();
  if (easy == nullptr)
    throw std::bad_alloc();
  return easy;
}

}  // namespace

HttpFile::HttpFile(HttpClient& client, int64_t trackId)
    : client_(client), url_(client.Address().TrackUrl(trackId)), easy_(CreateEasy()) {
  SetOptions();
}

HttpFile::~HttpFile() {
  StopRange();
}

template <typename T>
void HttpFile::SetOption(CURLoption option, T value) {
  const CURLcode result = curl_easy_setopt(easy_.get(), option, value);
  if (result == CURLE_OUT_OF_MEMORY)
    throw std::bad_alloc();
  if (result != CURLE_OK)
    throw QELRuntimeError(std::string("HTTP option refused: ") + curl_easy_strerror(result));
}

void HttpFile::SetOptions() {
  SetOption(CURLOPT_CURLU, url_.get());
  SetOption(CURLOPT_PROTOCOLS_STR, "http");
  SetOption(CURLOPT_REDIR_PROTOCOLS_STR, "http");
  SetOption(CURLOPT_FOLLOWLOCATION, 1L);
  SetOption(CURLOPT_MAXREDIRS, kMaxRedirects);
  SetOption(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  SetOption(CURLOPT_PROXY, "");  // whatever the environment says
  SetOption(CURLOPT_NOSIGNAL, 1L);
  SetOption(CURLOPT_QUICK_EXIT, 1L);  // a name that is being resolved holds up nobody
  SetOption(CURLOPT_BUFFERSIZE, kReceiveBufferBytes);
  SetOption(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(client_.Timeouts().connect.count()));
  if (const std::string& socket = client_.Address().UnixDomainSocket(); !socket.empty())
    SetOption(CURLOPT_UNIX_SOCKET_PATH, socket.c_str());
  SetOption(CURLOPT_ERRORBUFFER, curlError_);
  SetOption(CURLOPT_HEADERFUNCTION, &HttpFile::OnHeader);
  SetOption(CURLOPT_HEADERDATA, this);
  SetOption(CURLOPT_WRITEFUNCTION, &HttpFile::OnBody);
  SetOption(CURLOPT_WRITEDATA, this);
  SetOption(CURLOPT_PRIVATE, static_cast<IHttpTransfer*>(this));
}

// If-Match takes strong validators only; an answer's weak one is compared when it is here.
void HttpFile::SetPrecondition() {
  std::string header;
  if (isOpen_ && !version_.etag.empty() && !version_.etag.starts_with("W/"))
    header = "If-Match: " + version_.etag;
  else if (isOpen_ && version_.etag.empty() && !version_.lastModified.empty())
    header = "If-Unmodified-Since: " + version_.lastModified;
  SetOption(CURLOPT_HTTPHEADER, static_cast<curl_slist*>(nullptr));
  precondition_.reset();
  if (header.empty())
    return;
  precondition_.reset(curl_slist_append(nullptr, header.c_str()));
  if (!precondition_)
    throw std::bad_alloc();
  SetOption(CURLOPT_HTTPHEADER, precondition_.get());
}

void HttpFile::Open() {
  isOpen_ = false;
  SetPrecondition();
  std::vector<uint8_t> head;
  HeadReceiver receiver(head);
  StartRange({0, kHeadBytes}, receiver);
  Receive();
  head_ = std::move(head);
  isOpen_ = true;
  SetPrecondition();
}

void HttpFile::ReadAt(int64_t offset, std::span<uint8_t> bytes) {
  const int64_t inHead = std::clamp<int64_t>(static_cast<int64_t>(head_.size()) - offset, 0,
                                             static_cast<int64_t>(bytes.size()));
  if (inHead > 0)
    std::memcpy(bytes.data(), head_.data() + offset, static_cast<size_t>(inHead));
  bytes = bytes.subspan(static_cast<size_t>(inHead));
  if (bytes.empty())
    return;
  BlockReceiver receiver(bytes);
  StartRange({offset + inHead, static_cast<int64_t>(bytes.size())}, receiver);
  Receive();
  StopRange();
}

void HttpFile::StartRange(const ByteRange& range, IRangeReceiver& receiver) {
  StopRange();
  SetOption(CURLOPT_RANGE, range.Text().c_str());
  isDone_ = isPaused_ = isChecked_ = false;
  range_ = range;
  received_ = 0;
  receiver_ = &receiver;
  response_ = HttpResponse();
  error_ = nullptr;
  curlError_[0] = '\0';
  lastProgress_ = Clock::now();
  client_.Add(easy_.get());
  isRunning_ = true;
}

void HttpFile::StopRange() {
  if (isRunning_)
    client_.Remove(easy_.get());
  isRunning_ = false;
  receiver_ = nullptr;
}

void HttpFile::Receive() {
  try {
    ReceiveUntilEnough();
  } catch (...) {
    StopRange();
    throw;
  }
}

void HttpFile::ReceiveUntilEnough() {
  const std::stop_token stop = StopScope::Current();
  const std::stop_callback wake(stop, [this] { client_.Wake(); });
  lastProgress_ = Clock::now();  // nobody listened since the last call
  if (std::exchange(isPaused_, false) && isRunning_)
    curl_easy_pause(easy_.get(), CURLPAUSE_CONT);
  while (true) {
    if (stop.stop_requested())
      throw QELRuntimeError("stopped by the host");
    if (error_)
      std::rethrow_exception(error_);
    if (receiver_ != nullptr && receiver_->HasEnough() && isChecked_)
      break;
    if (isDone_)
      return CheckComplete();
    client_.Perform();
    if (isDone_ || error_ || receiver_->HasEnough())
      continue;
    CheckProgress();
    const auto left = client_.Timeouts().stall - (Clock::now() - lastProgress_);
    client_.Wait(
        std::max(std::chrono::ceil<std::chrono::milliseconds>(left), std::chrono::milliseconds(1)));
  }
  if (received_ == range_.size && !isDone_)
    client_.Perform();  // lets the transfer end, so that its connection is free for the next
}

void HttpFile::CheckProgress() const {
  if (Clock::now() - lastProgress_ < client_.Timeouts().stall)
    return;
  throw QELRuntimeError(QEL_TEXT("server sent nothing for "
                                 << client_.Timeouts().stall.count() << " ms, after " << received_
                                 << " of the " << range_.size << " bytes asked for"));
}

void HttpFile::CheckComplete() const {
  if (result_ != CURLE_OK) {
    throw QELRuntimeError(
        QEL_TEXT((curlError_[0] == '\0' ? curl_easy_strerror(result_) : curlError_)
                 << " (after " << received_ << " of the " << range_.size << " bytes asked for)"));
  }
  const int64_t expected = std::min(range_.size, version_.size - range_.offset);
  if (received_ != expected) {
    throw QELRuntimeError(
        QEL_TEXT("server sent " << received_ << " bytes where " << expected << " were to come"));
  }
}

void HttpFile::CheckResponse() {
  if (isOpen_)
    response_.CheckNext(range_, version_);
  else
    version_ = response_.CheckFirst(range_);
  isChecked_ = true;
}

size_t HttpFile::OnHeader(char* bytes, size_t, size_t size, void* self) {
  auto* const file = static_cast<HttpFile*>(self);
  try {
    file->lastProgress_ = Clock::now();
    file->response_.AddHeaderLine({bytes, size});
    return size;
  } catch (...) {  // must not pass through the library: Receive throws it again
    file->error_ = std::current_exception();
    return 0;
  }
}

size_t HttpFile::OnBody(char* bytes, size_t, size_t size, void* self) {
  auto* const file = static_cast<HttpFile*>(self);
  try {
    file->lastProgress_ = Clock::now();
    return file->TakeBody({reinterpret_cast<const uint8_t*>(bytes), size});
  } catch (...) {
    file->error_ = std::current_exception();
    return 0;
  }
}

size_t HttpFile::TakeBody(std::span<const uint8_t> bytes) {
  if (!isChecked_)
    CheckResponse();
  if (static_cast<int64_t>(bytes.size()) > range_.size - received_) {
    throw QELRuntimeError(
        QEL_TEXT("server sends more than the " << range_.size << " bytes asked for"));
  }
  if (!receiver_->Take(bytes)) {
    isPaused_ = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  received_ += static_cast<int64_t>(bytes.size());
  return bytes.size();
}

void HttpFile::OnDone(CURLcode result) noexcept {
  isDone_ = true;
  result_ = result;
  client_.Remove(easy_.get());
  isRunning_ = false;
  try {
    if (result == CURLE_OK && !isChecked_)
      CheckResponse();
  } catch (...) {
    error_ = std::current_exception();
  }
}

}  // namespace qel
