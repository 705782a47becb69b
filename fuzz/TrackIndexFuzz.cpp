#include <algorithm>

#include "FuzzTarget.h"
#include "elements/storage/JpegFields.h"
#include "elements/storage/TrackIndex.h"
#include "qel/QELRuntimeError.h"
#include "support/ClipMaker.h"
#include "support/Files.h"
#include "support/TempFolder.h"

namespace {

class MemoryBytes : public qel::IFileBytes {
 public:
  explicit MemoryBytes(std::span<const uint8_t> bytes) : bytes_(bytes) {}
  int64_t Size() const override { return static_cast<int64_t>(bytes_.size()); }
  void ReadAll(std::span<const qel::FilePart> parts) override {
    for (const auto& [offset, bytes] : parts) {
      Moravel::Fuzz::Require(offset >= 0 && offset + static_cast<int64_t>(bytes.size()) <= Size(),
                             "reads inside");
      std::copy_n(bytes_.begin() + offset, bytes.size(), bytes.begin());
    }
  }
  qel::ReadCost Cost() const override { return {}; }

 private:
  const std::span<const uint8_t> bytes_;
};

}  // namespace

// The readers of track indexes and of the fields in a sample: the bytes of a file that may be
// anything.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using Moravel::Fuzz::Require;
  const Moravel::Fuzz::Stopwatch stopwatch;
  if (const auto second = qel::FindSecondPicture({data, size}))
    Require(*second + 1 < size && data[*second] == 0xFF && data[*second + 1] == 0xD8,
            "a second picture begins as a picture does");
  MemoryBytes file({data, size});
  try {
    const qel::TrackIndex index = qel::ReadTrackIndex(file);
    Require(index.Count() > 0 && index.Facts().width > 0 && index.Facts().height > 0,
            "a track has pictures");
    Require(index.MemoryBytes() <= 4096 + 64 * static_cast<int64_t>(size),
            "what is only announced takes no memory");
    for (int64_t n = 0; n < index.Count(); n += 1 + index.Count() / 1000) {
      Require(index.Duration(n) >= 0, "time does not run back");
      Require(index.At(n).offset >= 0 && index.At(n).size >= 0, "places are not negative");
    }
    index.Find(qel::MediaTime(qel::EditRate(25, 1), 3, nullptr));
  } catch (const qel::QELRuntimeError&) {
  }
  return 0;
}

std::vector<Moravel::Fuzz::Input> Moravel::Fuzz::Seeds() {
  using namespace Moravel::Test;
  const TempFolder folder;
  std::vector<Input> seeds;
  for (const Container container : {Container::Avi, Container::Mov}) {
    for (const bool interlaced : {false, true}) {
      ClipSpec spec = {.file = folder / "clip", .width = 32, .height = 32, .pictures = 4};
      spec.container = container;
      spec.interlaced = interlaced;
      spec.variableRate = interlaced && container == Container::Mov;
      seeds.push_back(MakeClip(spec).samples[0]);
      seeds.push_back(ReadFile(spec.file));
    }
  }
  return seeds;
}
