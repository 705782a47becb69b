#include "elements/storage/HttpClient.h"

#include <algorithm>
#include <string>
#include <utility>

#include "elements/storage/HttpTransfer.h"
#include "qel/WorkflowStepImplementation.h"
#include "qelCore/OutOfMemory.h"

namespace qel {

namespace {

using std::chrono::milliseconds;

// Connections, and handles, that are kept without a transfer.
constexpr size_t kMaxIdle = 24;
// A sequence has two transfers under way, whose bytes may come very fast; many at a time share the
// link, and libcurl's own buffers do.
constexpr int kFast = 2;
constexpr long kFastBufferBytes = 512 << 10;
constexpr long kBufferBytes = CURL_MAX_WRITE_SIZE;  // libcurl's own size
constexpr milliseconds kLongestWait{50};

CURLM* CreateMulti() {
  static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
  CURLM* const multi = initialised == CURLE_OK ? curl_multi_init() : nullptr;
  if (multi == nullptr)
    FailOutOfMemory();
  return multi;
}

void Check(CURLMcode result) {
  if (result == CURLM_OUT_OF_MEMORY)
    FailOutOfMemory();
  if (result != CURLM_OK)
    throw QELRuntimeError(QEL_TEXT("HTTP transfers fail: " << curl_multi_strerror(result)));
}

}  // namespace

void CheckOption(CURLcode result) {
  if (result == CURLE_OUT_OF_MEMORY)
    FailOutOfMemory();
  if (result != CURLE_OK)
    throw QELRuntimeError(std::string("HTTP option refused: ") + curl_easy_strerror(result));
}

HttpClient::HttpClient(StorageAddress address, HttpLimits limits)
    : address_(std::move(address)), limits_(limits), multi_(CreateMulti()) {
  Check(curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, static_cast<long>(kMaxIdle)));
  idle_.reserve(kMaxIdle);
}

CurlEasy HttpClient::TakeEasy() {
  if (idle_.empty())
    idle_.push_back(MakeEasy());
  CurlEasy easy = std::move(idle_.back());
  idle_.pop_back();
  SetOption(easy, CURLOPT_BUFFERSIZE, taken_ < kFast ? kFastBufferBytes : kBufferBytes);
  ++taken_;
  return easy;
}

CurlEasy HttpClient::MakeEasy() const {
  CurlEasy easy(curl_easy_init());
  if (!easy)
    FailOutOfMemory();
  SetOption(easy, CURLOPT_PROTOCOLS_STR, "http");
  SetOption(easy, CURLOPT_REDIR_PROTOCOLS_STR, "http");
  SetOption(easy, CURLOPT_FOLLOWLOCATION, 1L);
  SetOption(easy, CURLOPT_MAXREDIRS, kMaxRedirects);
  SetOption(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  SetOption(easy, CURLOPT_PROXY, "");  // whatever the environment says
  SetOption(easy, CURLOPT_NOSIGNAL, 1L);
  SetOption(easy, CURLOPT_QUICK_EXIT, 1L);  // a name that is being resolved holds up nobody
  SetOption(easy, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(limits_.connect.count()));
  SetOption(easy, CURLOPT_ADDRESS_SCOPE, static_cast<long>(address_.InterfaceIndex()));
  if (const std::string& socket = address_.UnixDomainSocket(); !socket.empty())
    SetOption(easy, CURLOPT_UNIX_SOCKET_PATH, socket.c_str());
  return easy;
}

void HttpClient::GiveBack(CurlEasy easy) {
  --taken_;
  if (idle_.size() < kMaxIdle)
    idle_.push_back(std::move(easy));
}

void HttpClient::Add(CURL* transfer) {
  Check(curl_multi_add_handle(multi_.get(), transfer));
}

void HttpClient::Remove(CURL* transfer) {
  curl_multi_remove_handle(multi_.get(), transfer);
}

void HttpClient::Perform() {
  int running = 0;
  Check(curl_multi_perform(multi_.get(), &running));
  // A server whose bytes come faster than they are looked at is never waited for otherwise.
  CountListened();
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE)
      continue;
    void* transfer = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
    static_cast<IHttpTransfer*>(transfer)->OnDone(message->data.result);
  }
}

void HttpClient::CountListened() {
  const auto now = std::chrono::steady_clock::now();
  const Duration passed = now - std::exchange(lastLook_, now);
  const Duration listened = std::min<Duration>(passed, 2 * kLongestWait);
  listened_ += listened;
  missed_ += passed - listened;
}

void HttpClient::Wait() {
  Check(curl_multi_poll(multi_.get(), nullptr, 0, kLongestWait.count(), nullptr));
  CountListened();
}

}  // namespace qel
