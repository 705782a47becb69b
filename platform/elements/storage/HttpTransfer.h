#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <span>
#include <string_view>

#include "elements/storage/HttpClient.h"
#include "elements/storage/HttpResponse.h"

namespace qel {

constexpr long kMaxRedirects = 3;
// Of one answer, with those of redirects and interim answers before it.
constexpr size_t kMaxHeaderBytes = size_t{64} << 10;

// Takes the bytes of a range in order, as they arrive.
class IRangeReceiver {
 public:
  virtual ~IRangeReceiver() = default;

  // False: none of these bytes were taken, they are offered again by a later HttpTransfer::Receive.
  virtual bool Take(std::span<const uint8_t> bytes) = 0;
  // Whether HttpTransfer::Receive may return.
  virtual bool HasEnough() const = 0;
};

// One request for a range of a file, and its answer. It is under way from its construction on,
// while any transfer of the client is received, until it is complete or destroyed, which costs its
// connection unless it is complete. When a server closes the connection because this process was
// stopped meanwhile, the rest is asked for again. Failures are QELRuntimeError that says what the
// server did and what would be right. Used by one thread at a time, the client's.
class HttpTransfer : private IHttpTransfer {
 public:
  // `known`: the version that the answer must be of, null for whichever the server has. The client,
  // `url`, `known` and the receiver outlive the transfer.
  HttpTransfer(HttpClient& client, CURLU* url, const ByteRange& range, const FileVersion* known,
               IRangeReceiver& receiver);
  ~HttpTransfer() override;
  HttpTransfer(const HttpTransfer&) = delete;
  HttpTransfer& operator=(const HttpTransfer&) = delete;

  // Returns when the receiver has enough, or all of the range. `until`: when the client's clock
  // says that, the opening of a track takes too long.
  void Receive(HttpClient::Duration until = HttpClient::Duration::max());
  // No more bytes will come.
  bool IsOver() const { return isDone_ || error_; }
  // Of the answer that was received.
  const FileVersion& Version() const { return version_; }

 private:
  using Duration = HttpClient::Duration;
  struct ListCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };

  void SetPrecondition();
  void Start();
  bool IsCutByAPause(CURLcode result) const;
  void Resume();
  ByteRange Rest() const;
  void Listen();
  void CheckTime(Duration until);
  void CheckRate(Duration now);
  void CheckComplete() const;
  std::string FailureText() const;
  void MeasureAnswer();
  void MeasureBody();
  void CheckRedirect() const;
  void CheckResponse();

  static size_t OnHeader(char* bytes, size_t, size_t size, void* self);
  static size_t OnBody(char* bytes, size_t, size_t size, void* self);
  void TakeHeaderLine(std::string_view line);
  size_t TakeBody(std::span<const uint8_t> bytes);
  void OnDone(CURLcode result) noexcept override;

  HttpClient& client_;
  CURLU* const url_;
  const ByteRange range_;
  const FileVersion* known_;
  IRangeReceiver& receiver_;
  std::unique_ptr<curl_slist, ListCleanup> precondition_;
  CurlEasy easy_;

  bool isRunning_ = false;
  bool isDone_ = false;
  bool isPaused_ = false;
  bool isChecked_ = false;  // the answer's head
  FileVersion version_;
  size_t headerBytes_ = 0;
  int64_t received_ = 0;
  CURLcode result_ = CURLE_OK;
  std::exception_ptr error_;

  // By the client's clock.
  Duration started_{};
  Duration missed_{};  // when it was started
  Duration lastProgress_{};
  Duration windowStart_{};
  int64_t windowStartReceived_ = 0;

  // For the client's estimate of its link.
  using Clock = std::chrono::steady_clock;
  Clock::time_point asked_;
  Clock::time_point answered_;
  int64_t clientReceived_ = 0;  // when it was answered
  bool isAwaitedFromStart_ = false;
};

}  // namespace qel
