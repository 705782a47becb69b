#include "sinks/Thumbnail.h"

#include <libyuv.h>

#include <memory>

#include "sinks/PixelConversion.h"

namespace Moravel::Play {

namespace {

constexpr int kThumbnailBytes = 4;  // a pixel

// The three planes of a 4:2:0 picture without gaps.
struct Planes {
  Planes(const uint8_t* bytes, Size size)
      : y(bytes), width(size.width), chromaWidth((size.width + 1) / 2) {
    u = y + size_t(width) * size_t(size.height);
    v = u + size_t(chromaWidth) * size_t((size.height + 1) / 2);
  }
  size_t Bytes() const { return size_t(v - y) + size_t(v - u); }

  const uint8_t* y;
  const uint8_t* u;
  const uint8_t* v;
  int width;
  int chromaWidth;
};

// Planes are smaller than colours: they are shrunk first.
void ShrinkPlanes(const uint8_t* bytes, Size from, uint8_t* bgrx, Size size) {
  const Planes large(bytes, from);
  const auto memory = std::make_unique_for_overwrite<uint8_t[]>(Planes(bytes, size).Bytes());
  const Planes small(memory.get(), size);
  libyuv::I420Scale(large.y, large.width, large.u, large.chromaWidth, large.v, large.chromaWidth,
                    from.width, from.height, memory.get(), small.width,
                    memory.get() + (small.u - small.y), small.chromaWidth,
                    memory.get() + (small.v - small.y), small.chromaWidth, size.width, size.height,
                    libyuv::kFilterBox);
  libyuv::I420ToARGBMatrixFilter(small.y, small.width, small.u, small.chromaWidth, small.v,
                                 small.chromaWidth, bgrx, size.width * kThumbnailBytes,
                                 &libyuv::kYuvJPEGConstants, size.width, size.height,
                                 libyuv::kFilterBilinear);
}

void ShrinkColours(const qel::IVideoSample& image, Size from, uint8_t* bgrx, Size size) {
  const int stride = from.width * kThumbnailBytes;
  const auto full = std::make_unique_for_overwrite<uint8_t[]>(size_t(stride) * size_t(from.height));
  ConvertToBgrx(image, full.get(), stride);
  libyuv::ARGBScale(full.get(), stride, from.width, from.height, bgrx, size.width * kThumbnailBytes,
                    size.width, size.height, libyuv::kFilterBox);
}

}  // namespace

std::vector<uint8_t> MakeThumbnail(const qel::IVideoSample& image, Size size) {
  std::vector<uint8_t> bgrx(size_t(size.width) * size_t(size.height) * kThumbnailBytes);
  const Size from = {image.GetWidth(), image.GetHeight()};
  const qel::BufferConstPtr data = image.GetData();
  if (image.GetFourCC() == qel::FourCC_I420)
    ShrinkPlanes(data->GetInnerBuffer(), from, bgrx.data(), size);
  else
    ShrinkColours(image, from, bgrx.data(), size);
  return bgrx;
}

}  // namespace Moravel::Play
