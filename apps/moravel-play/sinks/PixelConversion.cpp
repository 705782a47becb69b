#include "sinks/PixelConversion.h"

#include <libyuv.h>

#include <stdexcept>
#include <utility>
#include <vector>

namespace Moravel::Play {

namespace {

int Half(int side) {
  return (side + 1) / 2;
}

size_t Area(int width, int height) {
  return size_t(width) * size_t(height);
}

// The bytes of a picture, and where they go.
struct Conversion {
  const uint8_t* bytes;
  int width;
  int height;
  uint8_t* bgrx;
  int stride;

  int FromPlanar420(bool swapped) const {
    const int chromaWidth = Half(width);
    const uint8_t* u = bytes + Area(width, height);
    const uint8_t* v = u + Area(chromaWidth, Half(height));
    if (swapped)
      std::swap(u, v);
    return libyuv::I420ToARGBMatrixFilter(bytes, width, u, chromaWidth, v, chromaWidth, bgrx,
                                          stride, &libyuv::kYuvJPEGConstants, width, height,
                                          libyuv::kFilterBilinear);
  }

  int FromPlanar422(const uint8_t* y, const uint8_t* u, const uint8_t* v) const {
    const int chromaWidth = Half(width);
    return libyuv::I422ToARGBMatrixFilter(y, width, u, chromaWidth, v, chromaWidth, bgrx, stride,
                                          &libyuv::kYuvJPEGConstants, width, height,
                                          libyuv::kFilterBilinear);
  }

  int FromPlanar422(bool swapped) const {
    const uint8_t* const first = bytes + Area(width, height);
    const uint8_t* const second = first + Area(Half(width), height);
    return swapped ? FromPlanar422(bytes, second, first) : FromPlanar422(bytes, first, second);
  }

  // By way of planes: what converts packed pictures directly takes their range as limited.
  int FromPacked422(bool lumaFirst, bool swapped) const {
    const size_t chromaSize = Area(Half(width), height);
    std::vector<uint8_t> planes(Area(width, height) + 2 * chromaSize);
    uint8_t* const y = planes.data();
    uint8_t* const u = y + Area(width, height);
    uint8_t* const v = u + chromaSize;
    const auto split = lumaFirst ? libyuv::YUY2ToI422 : libyuv::UYVYToI422;
    const int result =
        split(bytes, Half(width) * 4, y, width, u, Half(width), v, Half(width), width, height);
    return result != 0 ? result : swapped ? FromPlanar422(y, v, u) : FromPlanar422(y, u, v);
  }

  using RgbFunction = int (*)(const uint8_t*, int, uint8_t*, int, int, int);
  int FromRgb(RgbFunction convert, int bytesPerPixel) const {
    return convert(bytes, width * bytesPerPixel, bgrx, stride, width, height);
  }
};

int Convert(const Conversion& from, qel::FourCC format) {
  switch (format) {
    case qel::FourCC_Y800:
      return from.FromRgb(libyuv::J400ToARGB, 1);
    case qel::FourCC_I420:
      return from.FromPlanar420(false);
    case qel::FourCC_YV12:
      return from.FromPlanar420(true);
    case qel::FourCC_I422:
      return from.FromPlanar422(false);
    case qel::FourCC_YV16:
      return from.FromPlanar422(true);
    case qel::FourCC_YUYV:
      return from.FromPacked422(true, false);
    case qel::FourCC_YVYU:
      return from.FromPacked422(true, true);
    case qel::FourCC_UYVY:
      return from.FromPacked422(false, false);
    case qel::FourCC_BGR3:
      return from.FromRgb(libyuv::RGB24ToARGB, 3);  // libyuv names the bytes from the last one
    case qel::FourCC_RGB3:
      return from.FromRgb(libyuv::RAWToARGB, 3);
    case qel::FourCC_BGRA:
      return from.FromRgb(libyuv::ARGBCopy, 4);
    case qel::FourCC_RGBA:
      return from.FromRgb(libyuv::ABGRToARGB, 4);
    default:
      return -1;
  }
}

}  // namespace

void ConvertToBgrx(const qel::IVideoSample& image, uint8_t* bgrx, int stride) {
  const qel::BufferConstPtr data = image.GetData();
  const Conversion from = {data->GetInnerBuffer(), image.GetWidth(), image.GetHeight(), bgrx,
                           stride};
  if (Convert(from, image.GetFourCC()) != 0)
    throw std::runtime_error("a picture of this pixel format cannot be shown");
}

}  // namespace Moravel::Play
