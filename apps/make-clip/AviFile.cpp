#include "AviFile.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string_view>

namespace Moravel::Demo {

namespace {

// Little endian, 32 bits each.
std::string Numbers(std::initializer_list<size_t> numbers) {
  std::string bytes;
  for (const size_t number : numbers) {
    for (int shift = 0; shift < 32; shift += 8)
      bytes += static_cast<char>(number >> shift & 0xFF);
  }
  return bytes;
}

// Chunks begin at even places.
std::string Chunk(std::string_view type, const std::string& content) {
  return std::string(type) + Numbers({content.size()}) + content +
         std::string(content.size() % 2, '\0');
}

std::string List(std::string_view type, const std::string& chunks) {
  return Chunk("LIST", std::string(type) + chunks);
}

}  // namespace

std::string AviFile::Bytes() const {
  constexpr size_t kHasIndex = 0x10, kKeyPicture = 0x10, kBitsOfOnePlane = 24 << 16 | 1;
  constexpr char kPictureChunk[] = "00dc";
  const auto w = static_cast<size_t>(width), h = static_cast<size_t>(height);
  const auto rate = static_cast<size_t>(picturesPerSecond);
  std::string movie, index;
  size_t largest = 0;
  for (const std::string& picture : pictures) {
    index += kPictureChunk + Numbers({kKeyPicture, 4 + movie.size(), picture.size()});
    movie += Chunk(kPictureChunk, picture);
    largest = std::max(largest, picture.size());
  }
  const std::string main = Numbers(
      {1'000'000 / rate, largest * rate, 0, kHasIndex, pictures.size(), 0, 1, largest, w, h});
  const std::string stream = "vidsMJPG" + Numbers({0, 0, 0, 1, rate, 0, pictures.size(), largest,
                                                   ~size_t{0}, 0, 0, h << 16 | w});
  const std::string format =
      Numbers({40, w, h, kBitsOfOnePlane}) + "MJPG" + Numbers({3 * w * h, 0, 0, 0, 0});
  const std::string header = Chunk("avih", main + Numbers({0, 0, 0, 0})) +
                             List("strl", Chunk("strh", stream) + Chunk("strf", format));
  return Chunk("RIFF", "AVI " + List("hdrl", header) + List("movi", movie) + Chunk("idx1", index));
}

}  // namespace Moravel::Demo
