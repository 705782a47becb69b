#include "view/JpegWriter.h"

#include <turbojpeg.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

namespace Moravel::Play {

namespace {

constexpr int kQuality = 90;

std::string Compress(const uint8_t* planes, int width, int height) {
  const std::unique_ptr<void, decltype(&::tjDestroy)> compressor(::tjInitCompress(), &::tjDestroy);
  std::string jpeg(::tjBufSize(width, height, TJSAMP_420), '\0');
  auto* data = reinterpret_cast<unsigned char*>(jpeg.data());
  unsigned long size = jpeg.size();
  if (!compressor || ::tjCompressFromYUV(compressor.get(), planes, width, 1, height, TJSAMP_420,
                                         &data, &size, kQuality, TJFLAG_NOREALLOC) != 0)
    throw std::runtime_error(std::string("a picture cannot be written as JPEG: ") +
                             ::tjGetErrorStr2(compressor.get()));
  jpeg.resize(size);
  return jpeg;
}

int Half(int side) {
  return (side + 1) / 2;
}

// Rows of the fields in turn.
void Weave(const uint8_t* top, const uint8_t* bottom, int width, int rows, uint8_t* frame) {
  const auto size = static_cast<size_t>(width);
  for (int row = 0; row < rows; ++row) {
    const size_t at = static_cast<size_t>(row) * size;
    std::memcpy(frame + 2 * at, top + at, size);
    std::memcpy(frame + 2 * at + size, bottom + at, size);
  }
}

}  // namespace

std::string WriteJpeg(const qel::IVideoSample& image) {
  return Compress(image.GetData()->GetInnerBuffer(), image.GetWidth(), image.GetHeight());
}

std::string WriteJpegOfFields(const qel::IVideoSample& top, const qel::IVideoSample& bottom) {
  const int width = top.GetWidth();
  const int height = top.GetHeight();
  const int chromaWidth = Half(width);
  const int chromaHeight = Half(height);
  const auto luma = static_cast<size_t>(width) * static_cast<size_t>(height);
  const auto chroma = static_cast<size_t>(chromaWidth) * static_cast<size_t>(chromaHeight);
  std::vector<uint8_t> frame(2 * (luma + 2 * chroma));
  const uint8_t* const a = top.GetData()->GetInnerBuffer();
  const uint8_t* const b = bottom.GetData()->GetInnerBuffer();
  Weave(a, b, width, height, frame.data());
  Weave(a + luma, b + luma, chromaWidth, chromaHeight, frame.data() + 2 * luma);
  Weave(a + luma + chroma, b + luma + chroma, chromaWidth, chromaHeight,
        frame.data() + 2 * (luma + chroma));
  return Compress(frame.data(), width, 2 * height);
}

}  // namespace Moravel::Play
