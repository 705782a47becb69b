#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "elements/storage/LinkEstimate.h"
#include "elements/storage/StorageAddress.h"

namespace qel {

// How long a server may take, and how little it may send.
struct HttpLimits {
  std::chrono::milliseconds connect;  // with the resolution of its name
  std::chrono::milliseconds stall;    // without sending anything, before its answer and inside it
  // Until the head of an answer is complete, whatever comes meanwhile (interim answers, redirects,
  // header lines).
  std::chrono::milliseconds answer;
  std::chrono::milliseconds open;  // for all that is read of a track to open it
  // Bytes a second that a body has at least, over each window of that length.
  int64_t leastRate;
  std::chrono::milliseconds rateWindow;
};

struct CurlEasyCleanup {
  void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
};
using CurlEasy = std::unique_ptr<CURL, CurlEasyCleanup>;

// Throws when libcurl does not take the option.
void CheckOption(CURLcode result);
template <typename T>
void SetOption(const CurlEasy& easy, CURLoption option, T value) {
  CheckOption(curl_easy_setopt(easy.get(), option, value));
}

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
  using Duration = std::chrono::steady_clock::duration;

  HttpClient(StorageAddress address, HttpLimits limits);

  const StorageAddress& Address() const { return address_; }
  const HttpLimits& Limits() const { return limits_; }

  // A handle with the options that all requests have in common; used ones are given back.
  CurlEasy TakeEasy();
  void GiveBack(CurlEasy easy);

  // A transfer runs from Add until it is done or removed; CURLOPT_PRIVATE is its IHttpTransfer.
  void Add(CURL* transfer);
  void Remove(CURL* transfer);
  // Somebody begins to wait for the server, with Perform and Wait in turns.
  void Listen() { lastLook_ = std::chrono::steady_clock::now(); }
  // Does what can be done at once for all transfers.
  void Perform();
  // Returns when there is something to do, at the latest after some milliseconds.
  void Wait();
  // Ends the wait under way, or else the next one. Any thread may call it while the client lives.
  void Wake() noexcept { curl_multi_wakeup(multi_.get()); }

  // For how long the server has been waited for in all: the clock of all limits. It stands still
  // while nobody waits, and while the process is stopped.
  Duration Listened() const { return listened_; }
  // For how long the process was stopped meanwhile.
  Duration Missed() const { return missed_; }

  // Of all transfers together.
  void CountReceived(size_t bytes) { received_ += static_cast<int64_t>(bytes); }
  int64_t Received() const { return received_; }
  LinkEstimate& Link() { return link_; }

 private:
  struct MultiCleanup {
    void operator()(CURLM* multi) const { curl_multi_cleanup(multi); }
  };

  CurlEasy MakeEasy() const;
  void CountListened();

  const StorageAddress address_;
  const HttpLimits limits_;
  const std::unique_ptr<CURLM, MultiCleanup> multi_;
  int taken_ = 0;  // handles that were not given back
  std::vector<CurlEasy> idle_;
  Duration listened_{};
  Duration missed_{};
  std::chrono::steady_clock::time_point lastLook_;  // at the clock, by who waits
  int64_t received_ = 0;
  LinkEstimate link_;
};

}  // namespace qel
