#pragma once

#include <curl/curl.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Moravel::Bench {

constexpr int64_t kBulkRange = 4 << 20;

// One connection of bare libcurl that copies each body into memory, as far as there is room.
class BareCurl {
 public:
  explicit BareCurl(uint16_t port) : curl_(curl_easy_init(), curl_easy_cleanup) {
    const std::string url = "http://127.0.0.1:" + std::to_string(port) + "/tracks/1";
    curl_easy_setopt(curl_.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl_.get(), CURLOPT_WRITEFUNCTION, Write);
    curl_easy_setopt(curl_.get(), CURLOPT_WRITEDATA, this);
    curl_easy_setopt(curl_.get(), CURLOPT_BUFFERSIZE, 512L * 1024);
  }

  void Read(int64_t offset, int64_t size) {
    received_ = 0;
    const std::string range = std::to_string(offset) + "-" + std::to_string(offset + size - 1);
    curl_easy_setopt(curl_.get(), CURLOPT_RANGE, range.c_str());
    if (curl_easy_perform(curl_.get()) != CURLE_OK || received_ != size)
      throw std::runtime_error("bare libcurl failed");
  }

  // The body that was read last, if there was room for it.
  const uint8_t* Last() const { return reinterpret_cast<const uint8_t*>(body_.data()); }

 private:
  static size_t Write(const char* data, size_t, size_t size, void* self) {
    auto& [curl, body, received] = *static_cast<BareCurl*>(self);
    const size_t room = body.size() - static_cast<size_t>(received) % body.size();
    std::copy_n(data, std::min(size, room), body.end() - static_cast<ptrdiff_t>(room));
    received += static_cast<int64_t>(size);
    return size;
  }

  const std::unique_ptr<CURL, void (*)(CURL*)> curl_;
  std::vector<char> body_ = std::vector<char>(kBulkRange);
  int64_t received_ = 0;
};

}  // namespace Moravel::Bench
