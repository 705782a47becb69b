#include "elements/storage/HttpTransfer.h"

#include <strings.h>

#include <algorithm>
#include <stop_token>
#include <string>
#include <system_error>
#include <utility>

#include "elements/StopScope.h"
#include "qel/WorkflowStepImplementation.h"
#include "qelCore/OutOfMemory.h"

namespace qel {

namespace {

using std::chrono::milliseconds;

constexpr size_t kTriedBytes = size_t{4} << 20;

// A field of the last answer, empty when it has none.
std::string Field(const CurlEasy& easy, const char* name) {
  constexpr int kLastRequest = -1;
  curl_header* header = nullptr;
  const bool isThere =
      curl_easy_header(easy.get(), name, 0, CURLH_HEADER, kLastRequest, &header) == CURLHE_OK;
  return isThere ? header->value : "";
}

int Status(const CurlEasy& easy) {
  long status = 0;
  curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &status);
  return static_cast<int>(status);
}

// Empty when it has none.
std::string Part(CURLU* url, CURLUPart part) {
  char* text = nullptr;
  curl_url_get(url, part, &text, CURLU_DEFAULT_PORT);
  const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
  return text == nullptr ? "" : text;
}

bool HaveSame(CURLUPart part, CURLU* a, CURLU* b) {
  const std::string ofA = Part(a, part), ofB = Part(b, part);
  return !ofA.empty() && ::strcasecmp(ofA.c_str(), ofB.c_str()) == 0;
}

}  // namespace

HttpTransfer::HttpTransfer(HttpClient& client, CURLU* url, const ByteRange& range,
                           const FileVersion* known, IRangeReceiver& receiver)
    : client_(client),
      url_(url),
      range_(range),
      known_(known),
      receiver_(receiver),
      easy_(client.TakeEasy()) {
  SetOption(easy_, CURLOPT_CURLU, url_);
  SetOption(easy_, CURLOPT_USERAGENT, "moravel/" MORAVEL_VERSION);
  SetOption(easy_, CURLOPT_HEADERFUNCTION, &HttpTransfer::OnHeader);
  SetOption(easy_, CURLOPT_HEADERDATA, this);
  SetOption(easy_, CURLOPT_WRITEFUNCTION, &HttpTransfer::OnBody);
  SetOption(easy_, CURLOPT_WRITEDATA, this);
  SetOption(easy_, CURLOPT_PRIVATE, static_cast<IHttpTransfer*>(this));
  SetPrecondition();
  Start();
}

HttpTransfer::~HttpTransfer() {
  if (isRunning_)
    client_.Remove(easy_.get());
  curl_easy_setopt(easy_.get(), CURLOPT_HTTPHEADER, nullptr);
  client_.GiveBack(std::move(easy_));
}

void HttpTransfer::SetPrecondition() {
  const std::string header = known_ == nullptr ? std::string() : known_->Precondition();
  if (header.empty())
    return;
  precondition_.reset(curl_slist_append(nullptr, header.c_str()));
  if (!precondition_)
    FailOutOfMemory();
  SetOption(easy_, CURLOPT_HTTPHEADER, precondition_.get());
}

void HttpTransfer::Start() {
  SetOption(easy_, CURLOPT_RANGE, Rest().Text().c_str());
  started_ = lastProgress_ = client_.Listened();
  missed_ = client_.Missed();
  asked_ = Clock::now();
  client_.Add(easy_.get());
  isRunning_ = true;
}

// A server does not wait for long for a process that was stopped.
bool HttpTransfer::IsCutByAPause(CURLcode result) const {
  const bool isCut = result == CURLE_PARTIAL_FILE || result == CURLE_RECV_ERROR ||
                     result == CURLE_SEND_ERROR || result == CURLE_GOT_NOTHING;
  return isCut && client_.Missed() - missed_ >= client_.Limits().stall;
}

void HttpTransfer::Resume() {
  if (received_ > 0 && known_ == nullptr) {
    known_ = &version_;
    SetPrecondition();
  }
  isChecked_ = false;
  headerBytes_ = 0;
  Start();
}

// What has not come yet of the range, as far as the file is known to have it.
ByteRange HttpTransfer::Rest() const {
  const int64_t end = received_ > 0 ? std::min(range_.End(), version_.size) : range_.End();
  return {range_.offset + received_, end - range_.offset - received_};
}

void HttpTransfer::Listen() {
  client_.Listen();
  lastProgress_ = windowStart_ = client_.Listened();  // nobody listened since the last call
  windowStartReceived_ = received_;
  if (std::exchange(isPaused_, false) && isRunning_)
    curl_easy_pause(easy_.get(), CURLPAUSE_CONT);
}

void HttpTransfer::Receive(Duration until) {
  const std::stop_token stop = StopScope::Current();
  const std::stop_callback wake(stop, [this] { client_.Wake(); });
  Listen();
  isAwaitedFromStart_ = isAwaitedFromStart_ || Clock::now() - asked_ < milliseconds(1);
  while (true) {
    if (stop.stop_requested())
      throw QELRuntimeError("stopped by the host");
    if (receiver_.HasEnough() && isChecked_)
      break;
    if (error_)
      std::rethrow_exception(error_);
    if (isDone_)
      return CheckComplete();
    client_.Perform();
    if (IsOver() || receiver_.HasEnough())
      continue;
    CheckTime(until);
    client_.Wait();
  }
  if (received_ == range_.size && !isDone_)
    client_.Perform();  // lets the transfer end, so that its connection is free for the next
}

void HttpTransfer::CheckTime(Duration until) {
  const HttpLimits& limits = client_.Limits();
  const Duration now = client_.Listened();
  if (now - lastProgress_ >= limits.stall) {
    throw QELRuntimeError(QEL_TEXT("server sent nothing for "
                                   << limits.stall.count() << " ms, after " << received_
                                   << " of the " << range_.size << " bytes asked for"));
  }
  if (!isChecked_ && now - started_ >= limits.answer) {
    throw QELRuntimeError(
        QEL_TEXT("server did not come to the end of an answer's header within the "
                 << limits.answer.count() << " ms allowed"));
  }
  if (now >= until)
    throw QELRuntimeError(
        QEL_TEXT("opening takes longer than the " << limits.open.count() << " ms allowed"));
  CheckRate(now);
}

void HttpTransfer::CheckRate(Duration now) {
  const HttpLimits& limits = client_.Limits();
  if (!isChecked_ || now - windowStart_ < limits.rateWindow)
    return;
  const int64_t sent = received_ - windowStartReceived_;
  if (sent * 1000 < limits.leastRate * limits.rateWindow.count()) {
    throw QELRuntimeError(QEL_TEXT(
        "server sent " << sent << " bytes in " << limits.rateWindow.count()
                       << " ms, where at least " << limits.leastRate << " a second are to come"));
  }
  windowStart_ = now;
  windowStartReceived_ = received_;
}

// What kept the library from an answer, in words that say what to look at.
std::string HttpTransfer::FailureText() const {
  long error = 0;
  curl_easy_getinfo(easy_.get(), CURLINFO_OS_ERRNO, &error);
  const std::string reason =
      error == 0 ? "" : ": " + std::generic_category().message(static_cast<int>(error));
  const std::string host = Part(url_, CURLUPART_HOST);
  const std::string server = host + ':' + Part(url_, CURLUPART_PORT);
  switch (result_) {
    case CURLE_COULDNT_RESOLVE_HOST:
      return "no host has the name " + host + ": check it, or give the host's address";
    case CURLE_OPERATION_TIMEDOUT:
      return QEL_TEXT("cannot connect to " << server << ": no answer within "
                                           << client_.Limits().connect.count() << " ms");
    case CURLE_COULDNT_CONNECT:
      return "cannot connect to " + server + reason;
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
      return "what answers at " + server + " does not speak HTTP: check the port";
    case CURLE_TOO_MANY_REDIRECTS:
      return QEL_TEXT("server redirects more than the " << kMaxRedirects << " times allowed");
    case CURLE_GOT_NOTHING:
      return "server closed the connection without an answer";
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
      return QEL_TEXT("server cut the connection after " << received_ << " of the " << range_.size
                                                         << " bytes asked for" << reason);
    default:
      return QEL_TEXT("the transfer failed after "
                      << received_ << " of the " << range_.size
                      << " bytes asked for: " << curl_easy_strerror(result_));
  }
}

void HttpTransfer::CheckComplete() const {
  if (result_ == CURLE_OUT_OF_MEMORY) {
    // libcurl says so of a header line that is too long for it, too: memory is tried.
    TryMemory(kTriedBytes);
    throw QELRuntimeError("server sent a header line that is longer than any allowed");
  }
  if (result_ != CURLE_OK)
    throw QELRuntimeError(FailureText());
  const int64_t expected = range_.Inside(version_.size).size;
  if (received_ != expected) {
    throw QELRuntimeError(
        QEL_TEXT("server sent " << received_ << " bytes where " << expected << " were to come"));
  }
}

// Another server that is reached through this one's answers might be one that only this machine can
// reach.
void HttpTransfer::CheckRedirect() const {
  const std::string location = Field(easy_, "location");
  if (Status(easy_) / 100 != 3 || location.empty())
    return;
  const CurlUrl target(curl_url_dup(url_));
  if (!target)
    FailOutOfMemory();
  const bool isUrl = curl_url_set(target.get(), CURLUPART_URL, location.c_str(), 0) == CURLUE_OK;
  if (!isUrl || !HaveSame(CURLUPART_SCHEME, url_, target.get()) ||
      !HaveSame(CURLUPART_HOST, url_, target.get()) ||
      !HaveSame(CURLUPART_PORT, url_, target.get())) {
    throw QELRuntimeError(QEL_TEXT("server redirects to \""
                                   << location.substr(0, 80)
                                   << "\", where only another path of itself is followed"));
  }
}

void HttpTransfer::CheckResponse() {
  const HttpResponse response{Status(easy_), Field(easy_, "content-range"),
                              Field(easy_, "content-length"), Field(easy_, "etag"),
                              Field(easy_, "last-modified")};
  if (known_ != nullptr) {
    response.CheckNext(Rest(), *known_);
    version_ = *known_;
  } else {
    version_ = response.CheckFirst(Rest());
  }
  isChecked_ = true;
  windowStart_ = client_.Listened();
  MeasureAnswer();
}

// Only while somebody listens does time say something of the server.
void HttpTransfer::MeasureAnswer() {
  answered_ = Clock::now();
  clientReceived_ = client_.Received();
  if (isAwaitedFromStart_)
    client_.Link().Answered(answered_ - asked_);
}

// The beginning of a file is the one answer that may be left to come while nobody waits.
void HttpTransfer::MeasureBody() {
  if (isAwaitedFromStart_ && known_ != nullptr)
    client_.Link().Received(client_.Received() - clientReceived_, Clock::now() - answered_);
}

size_t HttpTransfer::OnHeader(char* bytes, size_t, size_t size, void* self) {
  auto* const transfer = static_cast<HttpTransfer*>(self);
  try {
    transfer->TakeHeaderLine({bytes, size});
    return size;
  } catch (...) {  // must not pass through the library: Receive throws it again
    transfer->error_ = std::current_exception();
    return 0;
  }
}

void HttpTransfer::TakeHeaderLine(std::string_view line) {
  lastProgress_ = client_.Listened();
  headerBytes_ += line.size();
  if (headerBytes_ > kMaxHeaderBytes) {
    throw QELRuntimeError(
        QEL_TEXT("server sent more than the " << kMaxHeaderBytes << " header bytes allowed"));
  }
  if (line == "\r\n" || line == "\n")
    CheckRedirect();
}

size_t HttpTransfer::OnBody(char* bytes, size_t, size_t size, void* self) {
  auto* const transfer = static_cast<HttpTransfer*>(self);
  try {
    return transfer->TakeBody({reinterpret_cast<const uint8_t*>(bytes), size});
  } catch (...) {
    transfer->error_ = std::current_exception();
    return 0;
  }
}

size_t HttpTransfer::TakeBody(std::span<const uint8_t> bytes) {
  lastProgress_ = client_.Listened();
  if (!isChecked_)
    CheckResponse();
  if (static_cast<int64_t>(bytes.size()) > range_.size - received_) {
    throw QELRuntimeError(
        QEL_TEXT("server sends more than the " << range_.size << " bytes asked for"));
  }
  if (!receiver_.Take(bytes)) {
    isPaused_ = true;
    return CURL_WRITEFUNC_PAUSE;
  }
  received_ += static_cast<int64_t>(bytes.size());
  client_.CountReceived(bytes.size());
  if (received_ == range_.size)
    MeasureBody();
  return bytes.size();
}

void HttpTransfer::OnDone(CURLcode result) noexcept {
  client_.Remove(easy_.get());
  isRunning_ = false;
  try {
    // libcurl's own limit for connecting, while the process was stopped or did not listen.
    if (result == CURLE_OPERATION_TIMEDOUT &&
        client_.Listened() - started_ < client_.Limits().connect / 2)
      return Start();
    if (IsCutByAPause(result))
      return Resume();
    if (result == CURLE_OK && !isChecked_)
      CheckResponse();
  } catch (...) {
    error_ = std::current_exception();
  }
  isDone_ = true;
  result_ = result;
}

}  // namespace qel
