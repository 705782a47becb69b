// The least that a player of an AVI over HTTP does with these libraries, as a limit for the real
// one: one libcurl transfer, and bare TurboJPEG on two threads.
#include <curl/curl.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "BareTurboJpeg.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Pictures on their way from the transfer to the decoders; an empty one ends a decoder.
class Pictures {
 public:
  void Push(Bytes picture) {
    std::unique_lock lock(access_);
    taken_.wait(lock, [this] { return pictures_.size() < kWindow; });
    pictures_.push_back(std::move(picture));
    pushed_.notify_one();
  }

  Bytes Pop() {
    std::unique_lock lock(access_);
    pushed_.wait(lock, [this] { return !pictures_.empty(); });
    Bytes picture = std::move(pictures_.front());
    pictures_.pop_front();
    taken_.notify_one();
    return picture;
  }

 private:
  static constexpr size_t kWindow = 32;
  std::mutex access_;
  std::condition_variable pushed_, taken_;
  std::deque<Bytes> pictures_;
};

// Cuts the pictures out of the file as it arrives.
class Chunks {
 public:
  explicit Chunks(Pictures& pictures) : pictures_(pictures) {}

  void Take(std::span<const uint8_t> bytes) {
    while (!bytes.empty()) {
      const bool isHeader = left_ == 0;
      const size_t part = std::min(isHeader ? kHeader - header_.size() : left_, bytes.size());
      if (isHeader || isPicture_) {
        Bytes& to = isHeader ? header_ : picture_;
        to.insert(to.end(), bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(part));
      }
      bytes = bytes.subspan(part);
      left_ -= isHeader ? 0 : part;
      if (isHeader && header_.size() == kHeader)
        StartChunk();
      else if (!isHeader && left_ == 0 && isPicture_)
        pictures_.Push(std::exchange(picture_, {}));
    }
  }

 private:
  static constexpr size_t kHeader = 8;

  void StartChunk() {
    const std::string_view name(reinterpret_cast<const char*>(header_.data()), 4);
    uint32_t size = 0;
    std::memcpy(&size, header_.data() + name.size(), sizeof size);
    isPicture_ = name == "00dc";
    left_ = name == "RIFF" || name == "LIST" ? name.size() : size + size % 2;
    header_.clear();
    if (isPicture_)
      picture_.reserve(left_);
  }

  Pictures& pictures_;
  Bytes header_, picture_;
  size_t left_ = 0;  // of the chunk's payload
  bool isPicture_ = false;
};

size_t OnBody(char* bytes, size_t, size_t size, void* chunks) {
  static_cast<Chunks*>(chunks)->Take({reinterpret_cast<const uint8_t*>(bytes), size});
  return size;
}

bool Download(const char* url, Pictures& pictures) {
  constexpr long kReceiveBuffer = 512 << 10;
  Chunks chunks(pictures);
  const std::unique_ptr<CURL, void (*)(CURL*)> curl(curl_easy_init(), curl_easy_cleanup);
  curl_easy_setopt(curl.get(), CURLOPT_URL, url);
  curl_easy_setopt(curl.get(), CURLOPT_FAILONERROR, 1L);
  curl_easy_setopt(curl.get(), CURLOPT_BUFFERSIZE, kReceiveBuffer);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, OnBody);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &chunks);
  return curl_easy_perform(curl.get()) == CURLE_OK;
}

void DecodeAll(Pictures& pictures, std::atomic<int>& count) {
  Moravel::Bench::BareTurboJpeg decoder;
  for (Bytes picture = pictures.Pop(); !picture.empty(); picture = pictures.Pop(), ++count)
    decoder.Decode(picture.data(), picture.size());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: bare-player URL\n");
    return 2;
  }
  constexpr int kDecoders = 2;
  Pictures pictures;
  std::atomic<int> count = 0;
  bool isComplete = false;
  {
    std::vector<std::jthread> decoders;
    for (int i = 0; i < kDecoders; ++i)
      decoders.emplace_back([&] { DecodeAll(pictures, count); });
    isComplete = Download(argv[1], pictures);
    for (int i = 0; i < kDecoders; ++i)
      pictures.Push({});
  }
  return isComplete && count > 0 ? 0 : 1;
}
