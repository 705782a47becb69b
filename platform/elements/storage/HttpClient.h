#pragma once

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "elements/storage/StorageAddress.h"

namespace qel {

struct HttpTimeouts {
  std::chrono::milliseconds connect;
  // For how long a server may send nothing, before its answer and inside it.
  std::chrono::milliseconds stall;
};

// What a transfer is told, from inside HttpClient::Perform.
class IHttpTransfer {
 public:
  virtual ~IHttpTransfer() = default;

  // Must not throw.
  virtual void OnDone(CURLcode result) noexcept = 0;
};

// The connections to one storage server, kept open between requests. It has no thread of its own:
// transfers go on while their owner calls Perform and Wait, and in the kernel's socket buffers
// meanwhile. Used by one thread at a time, but for Wake.
class HttpClient {
 public:
  HttpClient(StorageAddress address, HttpTimeouts timeouts);

  const StorageAddress& Address() const { return address_; }
  const HttpTimeouts& Timeouts() const { return timeouts_; }

  // A transfer runs from Add until it is done or removed; CURLOPT_PRIVATE is its IHttpTransfer.
  void Add(CURL* transfer);
  void Remove(CURL* transfer);
  // Does what can be done at once for all transfers.
  void Perform();
  // Returns when there is something to do, at the latest after `timeout`.
  void Wait(std::chrono::milliseconds timeout);
  // Ends the wait under way, or else the next one. Any thread may call it while the client lives.
  void Wake() noexcept { curl_multi_wakeup(multi_.get()); }

 private:
  struct MultiCleanup {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
  };

  const StorageAddress address_;
  const HttpTimeouts timeouts_;
  const std::unique_ptr<CURLM, MultiCleanup> multi_;
};

}  // namespace qel
