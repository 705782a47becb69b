#include <array>

#include "FuzzTarget.h"
#include "qelCore/LoggerWriter.h"
#include "support/ClipMaker.h"
#include "support/TestDecoder.h"

namespace {

constexpr std::array kFormats = {qel::FourCC_I420, qel::FourCC_BGRA, qel::FourCC_Y800,
                                 qel::FourCC_UYVY};

struct SilentWriter : qel::ILoggerWriter {
  void WriteLog(qel::LogLevel, const char*, const char*, const char*, const char*, const char*,
                const char*, const char*) override {}
};

}  // namespace

// The decoder element: the first byte chooses format and size, the others are the picture. A
// picture or an error comes out, never an earlier picture.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using Moravel::Fuzz::Require;
  const Moravel::Fuzz::Stopwatch stopwatch;
  qel::SetCurrentLoggerWriter(std::make_shared<SilentWriter>());
  if (size == 0)
    return 0;
  const int side = data[0] / kFormats.size() % 2 == 0 ? 0 : 40;
  Moravel::Test::TestDecoder decoder(Moravel::Test::NewTrack(), kFormats[data[0] % kFormats.size()],
                                     side, side);
  bool decoded = true;
  try {
    decoder.Push(
        std::make_shared<qel::BufferView>(nullptr, data + 1, static_cast<uint32_t>(size - 1)));
  } catch (const qel::QELRuntimeError&) {
    decoded = false;
  }
  Require((decoder.filter->GetSample() != nullptr) == decoded, "a picture or an error");
  Require(decoder.filter->GetSample() == nullptr, "one picture at most");
  return 0;
}

std::vector<Moravel::Fuzz::Input> Moravel::Fuzz::Seeds() {
  std::vector<Input> seeds;
  uint8_t choice = 0;
  for (const int subsampling : {TJSAMP_420, TJSAMP_422, TJSAMP_444, TJSAMP_440, TJSAMP_GRAY}) {
    for (const int width : {64, 33}) {
      const Input jpeg =
          Test::MakeJpeg({.width = width, .height = 47, .number = 5, .subsampling = subsampling});
      Input seed = {choice++};
      seed.insert(seed.end(), jpeg.begin(), jpeg.end());
      seeds.push_back(std::move(seed));
    }
  }
  return seeds;
}
