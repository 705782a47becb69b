#include "elements/mjpeg/OutputPicture.h"

#include <libyuv.h>

#include <span>
#include <utility>

#include "elements/mjpeg/PictureMemory.h"
#include "elements/mjpeg/PixelFormat.h"
#include "qel/QELRuntimeError.h"
#include "qelCore/SampleFactory.h"

namespace qel::mjpeg {

namespace {

size_t Bytes(Size size) {
  return size_t(size.width) * size_t(size.height);
}

// The size that chroma needs before it is put into the output. RGB takes it as it is coded where
// libyuv can smooth it on the way.
Size ChromaSize(Layout layout, Size size, const YuvPicture& picture) {
  const Size half = {Half(size.width), size.height};
  const Size quarter = {Half(size.width), Half(size.height)};
  switch (layout) {
    case Layout::Luma:
      return {};
    case Layout::Planar420:
      return quarter;
    case Layout::Planar422:
    case Layout::Yuyv:
    case Layout::Uyvy:
      return half;
    case Layout::Rgb:
      break;
  }
  const Size coded = picture.planes[1].size;
  if (coded == Size{Half(picture.size.width), Half(picture.size.height)})
    return quarter;
  return coded == Size{Half(picture.size.width), picture.size.height} ? half : size;
}

// Twice the rows, each between two of the source's at a quarter of their distance, as decoders show
// chroma of half the rows.
void DoubleRows(const Plane& from, uint8_t* to, Size size) {
  constexpr int kQuarter = 64;
  const int width = size.width;
  const int inner = from.size.height - 1;
  const uint8_t* const next = from.data + from.stride;
  libyuv::CopyPlane(from.data, from.stride, to, width, width, 1);
  libyuv::InterpolatePlane(from.data, from.stride, next, from.stride, to + width, 2 * width, width,
                           inner, kQuarter);
  libyuv::InterpolatePlane(next, from.stride, from.data, from.stride, to + 2 * width, 2 * width,
                           width, inner, kQuarter);
  if (size.height % 2 == 0) {
    libyuv::CopyPlane(from.data + from.stride * (from.size.height - 1), from.stride,
                      to + width * (size.height - 1), width, width, 1);
  }
}

// Each sample four times, as decoders show 4:1:1.
void QuadrupleColumns(const Plane& from, uint8_t* to, Size size) {
  for (int y = 0; y < size.height; ++y) {
    const uint8_t* const row = from.data + ptrdiff_t{from.stride} * y;
    for (int x = 0; x < size.width; ++x)
      *to++ = row[x / 4];
  }
}

// Writes the plane at another size, rows without padding.
void FitPlane(const Plane& from, uint8_t* to, Size size) {
  const bool sameWidth = from.size.width == size.width;
  if (sameWidth && from.size.height == size.height) {
    libyuv::CopyPlane(from.data, from.stride, to, size.width, size.width, size.height);
  } else if (sameWidth && size.height > 2 && Half(size.height) == from.size.height) {
    DoubleRows(from, to, size);
  } else if (from.size.height == size.height && from.size.width == (size.width + 3) / 4 &&
             size.width > 4) {
    QuadrupleColumns(from, to, size);
  } else {
    const bool larger = from.size.width < size.width || from.size.height < size.height;
    libyuv::ScalePlane(from.data, from.stride, from.size.width, from.size.height, to, size.width,
                       size.width, size.height,
                       larger ? libyuv::kFilterBilinear : libyuv::kFilterBox);
  }
}

// Whether the planes lie in the picture's memory as in an output picture of that size.
bool LiesLikeOutput(const YuvPicture& picture, std::span<const Plane> planes, Size size,
                    Size chromaSize) {
  const uint8_t* expected = picture.memory.get();
  Size planeSize = size;
  for (const Plane& plane : planes) {
    if (plane.data != expected || plane.size != planeSize || plane.stride != planeSize.width)
      return false;
    expected += Bytes(planeSize);
    planeSize = chromaSize;
  }
  return true;
}

// One picture on its way to the output. `planes` are Y and chroma in the output's order.
class Output {
 public:
  Output(const YuvPicture& picture, const PixelFormat& format, Size size)
      : format_(format),
        size_(size),
        chromaSize_(ChromaSize(format.layout, size, picture)),
        picture_(picture),
        planes_(picture.planes) {
    if (format.swapped)
      std::swap(planes_[1], planes_[2]);
  }

  BufferConstPtr Make() {
    switch (format_.layout) {
      case Layout::Luma:
        return MakePlanar(1);
      case Layout::Planar420:
      case Layout::Planar422:
        return MakePlanar(3);
      case Layout::Yuyv:
      case Layout::Uyvy:
        return MakePacked();
      case Layout::Rgb:
        break;
    }
    return MakeRgb();
  }

 private:
  Size SizeOf(size_t plane) const { return plane == 0 ? size_ : chromaSize_; }

  static BufferConstPtr Buffer(std::shared_ptr<const uint8_t[]> memory, size_t bytes) {
    const uint8_t* const data = memory.get();
    return std::make_shared<BufferView>(std::move(memory), data, static_cast<uint32_t>(bytes));
  }

  BufferConstPtr MakePlanar(size_t count) const {
    const std::span<const Plane> planes = std::span(planes_).first(count);
    const size_t bytes = Bytes(size_) + (count - 1) * Bytes(chromaSize_);
    if (LiesLikeOutput(picture_, planes, size_, chromaSize_))
      return Buffer(picture_.memory, bytes);
    const std::shared_ptr<uint8_t[]> memory = TakePictureMemory(bytes);
    uint8_t* to = memory.get();
    for (size_t i = 0; i < count; ++i) {
      FitPlane(planes[i], to, SizeOf(i));
      to += Bytes(SizeOf(i));
    }
    return Buffer(memory, bytes);
  }

  // Brings the planes to the sizes wanted where they are not; the result keeps them alive.
  std::array<std::shared_ptr<uint8_t[]>, 3> FitPlanes() {
    std::array<std::shared_ptr<uint8_t[]>, 3> fitted;
    for (size_t i = 0; i < planes_.size(); ++i) {
      if (planes_[i].size == SizeOf(i))
        continue;
      fitted[i] = TakePictureMemory(Bytes(SizeOf(i)));
      FitPlane(planes_[i], fitted[i].get(), SizeOf(i));
      planes_[i] = {fitted[i].get(), SizeOf(i).width, SizeOf(i)};
    }
    return fitted;
  }

  BufferConstPtr MakePacked() {
    const auto fitted = FitPlanes();
    const int stride = Half(size_.width) * 4;
    const size_t bytes = size_t(stride) * size_t(size_.height);
    const std::shared_ptr<uint8_t[]> memory = TakePictureMemory(bytes);
    const auto pack = format_.layout == Layout::Uyvy ? libyuv::I422ToUYVY : libyuv::I422ToYUY2;
    const auto& [y, u, v] = planes_;
    pack(y.data, y.stride, u.data, u.stride, v.data, v.stride, memory.get(), stride, size_.width,
         size_.height);
    return Buffer(memory, bytes);
  }

  BufferConstPtr MakeRgb() {
    const auto fitted = FitPlanes();
    const int stride = size_.width * format_.bytesPerPixel;
    const size_t bytes = size_t(stride) * size_t(size_.height);
    const std::shared_ptr<uint8_t[]> memory = TakePictureMemory(bytes);
    Convert(memory.get(), stride);
    return Buffer(memory, bytes);
  }

  // JPEG is full range.
  void Convert(uint8_t* to, int stride) const {
    const auto& [y, u, v] = planes_;
    const auto* const matrix =
        format_.swapped ? &libyuv::kYvuJPEGConstants : &libyuv::kYuvJPEGConstants;
    const bool alpha = format_.bytesPerPixel == 4;
    if (u.size == size_) {
      const auto convert = alpha ? libyuv::I444ToARGBMatrix : libyuv::I444ToRGB24Matrix;
      convert(y.data, y.stride, u.data, u.stride, v.data, v.stride, to, stride, matrix, size_.width,
              size_.height);
      return;
    }
    const auto from422 = alpha ? libyuv::I422ToARGBMatrixFilter : libyuv::I422ToRGB24MatrixFilter;
    const auto from420 = alpha ? libyuv::I420ToARGBMatrixFilter : libyuv::I420ToRGB24MatrixFilter;
    const auto convert = u.size.height == size_.height ? from422 : from420;
    convert(y.data, y.stride, u.data, u.stride, v.data, v.stride, to, stride, matrix, size_.width,
            size_.height, libyuv::kFilterBilinear);
  }

  const PixelFormat& format_;
  const Size size_;
  const Size chromaSize_;
  const YuvPicture& picture_;
  std::array<Plane, 3> planes_;
};

}  // namespace

JpegPicture::Planes PreferredPlanes(FourCC fourCC) {
  const PixelFormat* const format = FindPixelFormat(fourCC);
  if (format == nullptr || !format->swapped)
    return fourCC == FourCC_Y800 ? JpegPicture::Planes::Luma : JpegPicture::Planes::YUV;
  return format->layout == Layout::Rgb ? JpegPicture::Planes::YUV : JpegPicture::Planes::YVU;
}

BufferConstPtr MakeOutputPicture(const YuvPicture& picture, FourCC fourCC, Size size) {
  const PixelFormat* const format = FindPixelFormat(fourCC);
  if (format == nullptr)
    throw QELRuntimeError("no output format");
  return Output(picture, *format, size).Make();
}

}  // namespace qel::mjpeg
