#include "elements/mjpeg/BgraPicture.h"

#include <libyuv.h>

#include <utility>

#include "elements/mjpeg/OutputPicture.h"
#include "elements/mjpeg/PictureMemory.h"
#include "elements/mjpeg/PixelFormat.h"
#include "qel/QELRuntimeError.h"
#include "qelCore/SampleFactory.h"

namespace qel::mjpeg {

namespace {

constexpr int kBgraBytes = 4;  // a pixel

// Planes that lie in memory as that format has them, as Y, U and V.
YuvPicture PlanesOf(const PixelFormat& format, const uint8_t* bytes, Size size) {
  YuvPicture picture;
  picture.codedSize = picture.size = size;
  const PictureRows rows = RowsOf(format, size);
  for (size_t i = 0; i < rows.size(); ++i) {
    picture.planes[i] = {bytes, rows[i].rowBytes, {rows[i].rowBytes, rows[i].rows}};
    bytes += rows[i].Bytes();
  }
  if (format.swapped)
    std::swap(picture.planes[1], picture.planes[2]);
  return picture;
}

// By way of planes: what converts packed pictures directly takes their range as limited.
YuvPicture UnpackPlanes(const PixelFormat& format, const uint8_t* bytes, Size size) {
  const PixelFormat planar = {FourCC_I422, "I422", Layout::Planar422, format.swapped};
  const auto [y, first, second] = RowsOf(planar, size);
  const std::shared_ptr<uint8_t[]> memory =
      TakePictureMemory(y.Bytes() + first.Bytes() + second.Bytes());
  uint8_t* const chroma = memory.get() + y.Bytes();
  const auto split = format.layout == Layout::Uyvy ? libyuv::UYVYToI422 : libyuv::YUY2ToI422;
  split(bytes, RowsOf(format, size)[0].rowBytes, memory.get(), y.rowBytes, chroma, first.rowBytes,
        chroma + first.Bytes(), second.rowBytes, size.width, size.height);
  YuvPicture picture = PlanesOf(planar, memory.get(), size);
  picture.memory = memory;
  return picture;
}

// libyuv names the bytes of a pixel from the last one.
using ToBgra = int (*)(const uint8_t*, int, uint8_t*, int, int, int);
ToBgra ConversionOf(const PixelFormat& format) {
  switch (format.fourCC) {
    case FourCC_BGR3:
      return libyuv::RGB24ToARGB;
    case FourCC_RGB3:
      return libyuv::RAWToARGB;
    case FourCC_BGRA:
      return libyuv::ARGBCopy;
    case FourCC_RGBA:
      return libyuv::ABGRToARGB;
    default:
      return libyuv::J400ToARGB;
  }
}

BufferConstPtr ConvertPixels(const PixelFormat& format, const uint8_t* bytes, Size from, Size to) {
  const int stride = from.width * kBgraBytes;
  std::shared_ptr<uint8_t[]> bgra = TakePictureMemory(size_t(stride) * size_t(from.height));
  ConversionOf(format)(bytes, RowsOf(format, from)[0].rowBytes, bgra.get(), stride, from.width,
                       from.height);
  const int newStride = to.width * kBgraBytes;
  const size_t newBytes = size_t(newStride) * size_t(to.height);
  if (from != to) {
    const std::shared_ptr<uint8_t[]> scaled = TakePictureMemory(newBytes);
    libyuv::ARGBScale(bgra.get(), stride, from.width, from.height, scaled.get(), newStride,
                      to.width, to.height, libyuv::kFilterBox);
    bgra = scaled;
  }
  const uint8_t* const data = bgra.get();
  return std::make_shared<BufferView>(std::move(bgra), data, static_cast<uint32_t>(newBytes));
}

}  // namespace

BufferConstPtr MakeBgraPicture(const IVideoSample& picture, Size size) {
  const PixelFormat* const format = FindPixelFormat(picture.GetFourCC());
  if (format == nullptr)
    throw QELRuntimeError("a picture of this pixel format cannot be shown");
  const BufferConstPtr data = picture.GetData();
  const uint8_t* const bytes = data->GetInnerBuffer();
  const Size from = {picture.GetWidth(), picture.GetHeight()};
  switch (format->layout) {
    case Layout::Planar420:
    case Layout::Planar422:
      return MakeOutputPicture(PlanesOf(*format, bytes, from), FourCC_BGRA, size);
    case Layout::Yuyv:
    case Layout::Uyvy:
      return MakeOutputPicture(UnpackPlanes(*format, bytes, from), FourCC_BGRA, size);
    case Layout::Luma:
    case Layout::Rgb:
      break;
  }
  return ConvertPixels(*format, bytes, from, size);
}

}  // namespace qel::mjpeg
