#include "elements/storage/HttpClient.h"

#include <new>
#include <utility>

#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

// Connections that are kept without a transfer.
constexpr long kMaxIdleConnections = 8;

CURLM* CreateMulti() {
  static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
  CURLM* const multi = initialised == CURLE_OK ? curl_multi_init() : nullptr;
  if (multi == nullptr)
    throw std::bad_alloc();
  return multi;
}

void Check(CURLMcode result) {
  if (result != CURLM_OK)
    throw QELRuntimeError(QEL_TEXT("HTTP transfers fail: " << curl_multi_strerror(result)));
}

}  // namespace

HttpClient::HttpClient(StorageAddress address, HttpTimeouts timeouts)
    : address_(std::move(address)), timeouts_(timeouts), multi_(CreateMulti()) {
  Check(curl_multi_setopt(multi_.get(), CURLMOPT_MAXCONNECTS, kMaxIdleConnections));
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
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE)
      continue;
    void* transfer = nullptr;
    curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
    static_cast<IHttpTransfer*>(transfer)->OnDone(message->data.result);
  }
}

void HttpClient::Wait(std::chrono::milliseconds timeout) {
  Check(curl_multi_poll(multi_.get(), nullptr, 0, static_cast<int>(timeout.count()), nullptr));
}

}  // namespace qel
