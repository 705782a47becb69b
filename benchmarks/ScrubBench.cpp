// Dragging over a long track of a far server:  scrub-bench CLIP  prints one JSON object.
//
// Orders come as fast as a screen draws, each of them newer than the last. What they are held
// against is measured in turn with them: bare libcurl fetches one sample through the same link, and
// bare TurboJPEG decodes it.
#include <curl/curl.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>

#include "BareTurboJpeg.h"
#include "DelayProxy.h"
#include "command/Host.h"
#include "elements/storage/TrackInfo.h"
#include "live/LiveEngine.h"
#include "storage-server/StorageServer.h"

namespace Moravel::Bench {

namespace {

using namespace std::chrono_literals;
using Play::Clock;
using Play::LivePicture;

constexpr auto kOneWay = 20ms;
constexpr auto kScreen = 16ms;  // from one order to the next
constexpr int kRounds = 5;
constexpr int kOrdersARound = 120;
constexpr int kBareARound = 12;

double Milliseconds(Clock::duration time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

double Percentile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  return values.at(static_cast<size_t>(std::ceil(share * static_cast<double>(values.size() - 1))));
}

// One kept connection, one range at a time.
class BareFetch {
 public:
  explicit BareFetch(const std::string& url) : curl_(curl_easy_init(), curl_easy_cleanup) {
    curl_easy_setopt(curl_.get(), CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl_.get(), CURLOPT_WRITEFUNCTION, Write);
    curl_easy_setopt(curl_.get(), CURLOPT_WRITEDATA, &body_);
  }
  const std::vector<uint8_t>& Fetch(const qel::TrackIndex::Sample& sample) {
    body_.clear();
    const std::string range =
        std::to_string(sample.offset) + "-" + std::to_string(sample.offset + sample.size - 1);
    curl_easy_setopt(curl_.get(), CURLOPT_RANGE, range.c_str());
    if (curl_easy_perform(curl_.get()) != CURLE_OK ||
        static_cast<int64_t>(body_.size()) != sample.size)
      throw std::runtime_error("bare libcurl failed");
    return body_;
  }

 private:
  static size_t Write(const uint8_t* data, size_t, size_t size, std::vector<uint8_t>* body) {
    body->insert(body->end(), data, data + size);
    return size;
  }

  const std::unique_ptr<CURL, void (*)(CURL*)> curl_;
  std::vector<uint8_t> body_;
};

struct Times {
  std::vector<double> fetchAndDecode, decode;  // bare
  std::vector<double> drag, back;              // from the order to the picture
  int64_t stale = 0;
};

class Scrub {
 public:
  explicit Scrub(const std::filesystem::path& clip)
      : id_(server_.AddTrack(clip)),
        bare_("http://127.0.0.1:" + std::to_string(proxy_.Port()) + "/tracks/" +
              std::to_string(id_)) {
    auto live = Play::OpenLiveTracks(
        {Play::ParseTrackArgument("127.0.0.1:" + std::to_string(proxy_.Port()) + ":T" +
                                  std::to_string(id_))},
        {});
    const auto info = live.servers.at(0).reader->Describe()->GetVideoInfoList().at(0);
    index_ = dynamic_cast<const qel::TrackInfo&>(*info).Index();
    size_ = live.servers[0].tracks.at(0).ownSize;
    engine_.emplace(std::move(live.servers), Play::LiveEngine::Limits{});
  }

  void Bare(Times& times) {
    for (int i = 0; i < kBareARound; ++i) {
      const auto sample =
          index_->At(std::uniform_int_distribution<int64_t>(0, index_->Count() - 1)(random_));
      const auto begin = Clock::now();
      const std::vector<uint8_t>& bytes = bare_.Fetch(sample);
      const auto fetched = Clock::now();
      decoder_.Decode(bytes.data(), bytes.size());
      times.fetchAndDecode.push_back(Milliseconds(Clock::now() - begin));
      times.decode.push_back(Milliseconds(Clock::now() - fetched));
    }
  }

  // There and over most of the track, then back over what was shown.
  void Drag(Times& times) {
    std::vector<std::pair<int64_t, std::future<LivePicture>>> orders;
    auto next = Clock::now();
    for (int i = 0; i < kOrdersARound; ++i, next += kScreen) {
      std::this_thread::sleep_until(next);
      const auto count = static_cast<double>(index_->Count() - 1);
      const auto sample = static_cast<int64_t>(count * (0.5 + 0.49 * std::sin(0.037 * ++moves_)));
      orders.emplace_back(sample, Order(sample));
    }
    std::vector<int64_t> seen;
    for (auto& [sample, order] : orders) {
      const LivePicture picture = order.get();
      times.stale += picture.state == LivePicture::State::Stale ? 1 : 0;
      if (!picture.image)
        continue;
      times.drag.push_back(Milliseconds(picture.latency));
      seen.push_back(sample);
    }
    std::reverse(seen.begin(), seen.end());
    for (const int64_t sample : seen)
      times.back.push_back(Milliseconds(Order(sample).get().latency));
  }

 private:
  std::future<LivePicture> Order(int64_t sample) {
    return engine_->Order(
        {.key = {1, sample}, .size = size_, .lane = "picture", .generation = ++generation_});
  }

  Player::StorageServer server_{{}};
  const int64_t id_;
  DelayProxy proxy_{server_.Port(), kOneWay};
  BareFetch bare_;
  BareTurboJpeg decoder_;
  std::mt19937 random_{1};
  std::shared_ptr<const qel::TrackIndex> index_;
  Play::Size size_;
  std::optional<Play::LiveEngine> engine_;
  int64_t generation_ = 0;
  int moves_ = 0;
};

void Run(const char* clip) {
  Play::StartHost(orl::mv::logging::ILogger::Level_NoLog);
  Scrub scrub(clip);
  Times times;
  for (int round = 0; round < kRounds; ++round) {
    scrub.Bare(times);
    scrub.Drag(times);
  }
  constexpr double kMedian = 0.5;
  constexpr double kTail = 0.99;
  const double one = Percentile(times.fetchAndDecode, kMedian);
  const double decode = Percentile(times.decode, kMedian);
  std::printf(
      "{\"p50\": %.4f, \"p99\": %.4f, \"bare_p99\": %.4f, \"back\": %.4f, \"one_ms\": %.2f, "
      "\"decode_ms\": %.2f, "
      "\"shown\": %zu, \"stale\": %lld}\n",
      Percentile(times.drag, kMedian) / one, Percentile(times.drag, kTail) / one,
      Percentile(times.fetchAndDecode, kTail) / one, Percentile(times.back, kMedian) / decode, one,
      decode, times.drag.size(), static_cast<long long>(times.stale));
}

}  // namespace

}  // namespace Moravel::Bench

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: scrub-bench CLIP\n", stderr);
    return 2;
  }
  Moravel::Bench::Run(argv[1]);
}
