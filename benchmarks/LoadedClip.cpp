#include "LoadedClip.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

namespace Moravel::Bench {

using namespace Moravel::Player;

namespace {

// Enough pictures that none is still in a processor cache when its turn comes again.
constexpr int64_t kSamples = 48;

std::filesystem::path clipFile;

class LocalFile : public qel::IFileBytes {
 public:
  explicit LocalFile(const std::filesystem::path& path)
      : size_(static_cast<int64_t>(std::filesystem::file_size(path))),
        stream_(path, std::ios::binary) {}
  int64_t Size() const override { return size_; }
  void ReadAll(std::span<const qel::FilePart> parts) override {
    for (const auto& [offset, bytes] : parts) {
      stream_.seekg(offset);
      stream_.read(reinterpret_cast<char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }
  }
  qel::ReadCost Cost() const override { return {}; }

 private:
  const int64_t size_;
  std::ifstream stream_;
};

}  // namespace

Track::Track(const TrackId& id) : id_(id) {
  QELPreloader::InitSource(source_, control_, id_);
  info_ = source_->GetDefinedOutput("")->GetVideoInfoList().at(0);
  preloader_.SetStorageSource(id_.StorageId(), source_, control_);
}

void Track::Preload(int64_t number, CacheUpdateQueue& queue) {
  const qel::EditRate& rate = info_->GetEditRate();
  const auto tp = Time::TimePoint().FromRatio(static_cast<uint64_t>(number), rate._denominator,
                                              rate._numerator);
  const PreloadOrder order(tp, SampleRate(rate._numerator, rate._denominator), &queue, id_);
  if (preloader_.Preload(order) != IPreloader::PreloadResult::SUCCESS_EXIST)
    throw std::runtime_error("no sample " + std::to_string(number) + " in " + id_.ToString());
}

LoadedClip::LoadedClip(const std::filesystem::path& file) : server_({}) {
  server_.AddTrack(1, file);
  track_ = std::make_unique<Track>(TrackId(StorageId("127.0.0.1", server_.Port()), 1));
  for (int64_t n = 0; n < std::min(kSamples, track_->SampleCount()); ++n)
    track_->Preload(n, cache_);
}

void SetTheClip(const std::filesystem::path& file) {
  clipFile = file;
}

const std::filesystem::path& TheClipFile() {
  return clipFile;
}

const qel::TrackIndex& Index() {
  static const qel::TrackIndex index = [] {
    LocalFile file(clipFile);
    return qel::ReadTrackIndex(file);
  }();
  return index;
}

LoadedClip& TheClip() {
  static LoadedClip clip(clipFile);
  return clip;
}

}  // namespace Moravel::Bench
