#pragma once

#include <filesystem>

#include "sinks/Picture.h"

namespace Moravel::Play {

// Writes each sample as it is stored, without decoding it, as a JPEG file into a folder, which it
// makes if needed: "track1-000012.jpg", of the fields of track 7 of a server
// "track2-T7-000012-top.jpg" and "track2-T7-000012-bottom.jpg". Where a picture leaves out its
// Huffman tables, as motion JPEG may, the standard's are added, so that everybody can read the
// file.
class JpegSink : public IPictureSink {
 public:
  explicit JpegSink(const std::filesystem::path& folder);

  void Begin(const Track&) override {}
  void WriteStored(const StoredSample& sample) override;
  void Write(const Picture&) override {}
  void Finish() override {}

 private:
  const std::filesystem::path folder_;
};

}  // namespace Moravel::Play
