#pragma once

#include <curl/curl.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "elements/storage/FileBytes.h"
#include "elements/storage/HttpClient.h"
#include "elements/storage/HttpResponse.h"

namespace qel {

// Takes the bytes of a range in order, as they arrive.
class IRangeReceiver {
 public:
  virtual ~IRangeReceiver() = default;

  // False: none of these bytes were taken, they are offered again by a later HttpFile::Receive.
  virtual bool Take(std::span<const uint8_t> bytes) = 0;
  // Whether HttpFile::Receive may return.
  virtual bool HasEnough() const = 0;
};

// One track's file on a storage server. All answers belong to one version of it: the one that Open
// found. Every failure is a QELRuntimeError that says what the server did and what would be right;
// after it no range is under way and the next one starts afresh. Used by one thread at a time, the
// client's.
class HttpFile : public IFileBytes, private IHttpTransfer {
 public:
  // The client outlives the file.
  HttpFile(HttpClient& client, int64_t trackId);
  ~HttpFile() override;
  HttpFile(const HttpFile&) = delete;
  HttpFile& operator=(const HttpFile&) = delete;

  // Finds the version that the server has now, and keeps its first bytes for ReadAt.
  void Open();

  int64_t Size() const override { return version_.size; }
  void ReadAt(int64_t offset, std::span<uint8_t> bytes) override;

  // Asks for a range, whose bytes then go to the receiver while Receive is called. Ends an earlier
  // one. The receiver lives until the range is complete or stopped.
  void StartRange(const ByteRange& range, IRangeReceiver& receiver);
  // Returns when the receiver has enough.
  void Receive();
  // Ends the range; its connection is lost unless the range is complete.
  void StopRange();

 private:
  using Clock = std::chrono::steady_clock;
  struct EasyCleanup {
    void operator()(CURL* easy) const { curl_easy_cleanup(easy); }
  };
  struct ListCleanup {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
  };

  template <typename T>
  void SetOption(CURLoption option, T value);
  void SetOptions();
  void SetPrecondition();
  void ReceiveUntilEnough();
  void CheckProgress() const;
  void CheckResponse();
  void CheckComplete() const;

  static size_t OnHeader(char* bytes, size_t, size_t size, void* self);
  static size_t OnBody(char* bytes, size_t, size_t size, void* self);
  size_t TakeBody(std::span<const uint8_t> bytes);
  void OnDone(CURLcode result) noexcept override;

  HttpClient& client_;
  const CurlUrl url_;
  char curlError_[CURL_ERROR_SIZE] = {};
  std::unique_ptr<curl_slist, ListCleanup> precondition_;
  const std::unique_ptr<CURL, EasyCleanup> easy_;

  bool isOpen_ = false;  // version_ is known
  FileVersion version_;
  std::vector<uint8_t> head_;

  // The range under way.
  bool isRunning_ = false;
  bool isDone_ = false;
  bool isPaused_ = false;
  bool isChecked_ = false;  // the response's head
  ByteRange range_;
  int64_t received_ = 0;
  IRangeReceiver* receiver_ = nullptr;
  HttpResponse response_;
  CURLcode result_ = CURLE_OK;
  std::exception_ptr error_;
  Clock::time_point lastProgress_;
};

}  // namespace qel
