#include "view/JpegWriter.h"

#include <turbojpeg.h>

#include <memory>
#include <stdexcept>

#include "elements/jpeg/TurboJpegError.h"

namespace Moravel::Play {

namespace {

constexpr int kQuality = 95;

std::string Compress(const uint8_t* planes, int width, int height) {
  const std::unique_ptr<void, decltype(&::tjDestroy)> compressor(::tjInitCompress(), &::tjDestroy);
  std::string jpeg(::tjBufSize(width, height, TJSAMP_422), '\0');
  auto* data = reinterpret_cast<unsigned char*>(jpeg.data());
  unsigned long size = jpeg.size();
  if (!compressor || ::tjCompressFromYUV(compressor.get(), planes, width, 1, height, TJSAMP_422,
                                         &data, &size, kQuality, TJFLAG_NOREALLOC) != 0)
    throw std::runtime_error(std::string("a picture cannot be written as JPEG: ") +
                             qel::TurboJpegError(compressor.get()));
  jpeg.resize(size);
  return jpeg;
}

}  // namespace

std::string WriteJpeg(const qel::IVideoSample& image) {
  return Compress(image.GetData()->GetInnerBuffer(), image.GetWidth(), image.GetHeight());
}

}  // namespace Moravel::Play
