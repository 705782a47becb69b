#pragma once

#include "sinks/Picture.h"

namespace Moravel::Play {

// Writes each picture as a PNG file into a folder, which it makes if needed:
// "track1-1920x1080-000012.png", of a field of track 7 of a server
// "track2-T7-1920x540-000012-top.png".
class PngSink : public IPictureSink {
 public:
  explicit PngSink(const std::filesystem::path& folder);

  void Begin(const Track&) override {}
  void Write(const Picture& picture) override;
  void Finish() override {}

 private:
  const std::filesystem::path folder_;
};

}  // namespace Moravel::Play
