#include "sinks/HuffmanTables.h"

#include <turbojpeg.h>

#include <memory>
#include <span>
#include <stdexcept>

namespace Moravel::Play {

namespace {

struct DestroyCompressor {
  void operator()(void* handle) const { tjDestroy(handle); }
};
struct FreeJpeg {
  void operator()(unsigned char* bytes) const { tjFree(bytes); }
};

// The encoder writes these tables into whatever it makes: the tables of a tiny picture in colour.
std::vector<uint8_t> MakeTables() {
  constexpr int kSide = 8;
  constexpr int kQuality = 75;
  const std::vector<uint8_t> grey(size_t(kSide) * kSide * 3, 128);
  const std::unique_ptr<void, DestroyCompressor> compressor(tjInitCompress());
  unsigned char* made = nullptr;
  unsigned long size = 0;
  const int result = compressor ? tjCompress2(compressor.get(), grey.data(), kSide, 0, kSide,
                                              TJPF_RGB, &made, &size, TJSAMP_444, kQuality, 0)
                                : -1;
  const std::unique_ptr<unsigned char, FreeJpeg> owner(made);
  if (result != 0)
    throw std::runtime_error("the JPEG encoder makes no picture");

  constexpr uint8_t kTables = 0xC4, kScan = 0xDA;
  constexpr size_t kStartOfImage = 2, kMarker = 2;
  std::vector<uint8_t> tables;
  std::span<const uint8_t> rest = std::span<const uint8_t>(made, size).subspan(kStartOfImage);
  while (rest.size() > 4 && rest[1] != kScan) {
    const size_t length = kMarker + (size_t(rest[2]) << 8 | rest[3]);
    if (rest[1] == kTables)
      tables.insert(tables.end(), rest.begin(), rest.begin() + static_cast<std::ptrdiff_t>(length));
    rest = rest.subspan(length);
  }
  return tables;
}

}  // namespace

const std::vector<uint8_t>& StandardHuffmanTables() {
  static const std::vector<uint8_t> tables = MakeTables();
  return tables;
}

}  // namespace Moravel::Play
