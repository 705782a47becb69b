#include "elements/mjpeg/PixelFormat.h"

#include <algorithm>
#include <iterator>

namespace qel::mjpeg {

namespace {

constexpr PixelFormat kFormats[] = {
    {FourCC_Y800, "Y800", Layout::Luma},
    {FourCC_YUYV, "YUYV", Layout::Yuyv},
    {FourCC_YVYU, "YVYU", Layout::Yuyv, true},
    {FourCC_UYVY, "UYVY", Layout::Uyvy},
    {FourCC_YV12, "YV12", Layout::Planar420, true},
    {FourCC_YV16, "YV16", Layout::Planar422, true},
    {FourCC_I420, "I420", Layout::Planar420},
    {FourCC_I422, "I422", Layout::Planar422},
    {FourCC_BGR3, "BGR3", Layout::Rgb, false, 3},
    {FourCC_BGRA, "BGRA", Layout::Rgb, false, 4},
    {FourCC_RGB3, "RGB3", Layout::Rgb, true, 3},
    {FourCC_RGBA, "RGBA", Layout::Rgb, true, 4},
};

}  // namespace

const PixelFormat* FindPixelFormat(FourCC fourCC) {
  const auto found =
      std::find_if(std::begin(kFormats), std::end(kFormats),
                   [fourCC](const PixelFormat& format) { return format.fourCC == fourCC; });
  return found == std::end(kFormats) ? nullptr : found;
}

std::map<std::string, FourCC> FormatsByName() {
  std::map<std::string, FourCC> formats;
  for (const PixelFormat& format : kFormats)
    formats.emplace(format.name, format.fourCC);
  return formats;
}

std::string SupportedFormats() {
  std::string names;
  for (const PixelFormat& format : kFormats)
    names += (names.empty() ? "" : ", ") + std::string(format.name);
  return names;
}

PictureRows RowsOf(const PixelFormat& format, Size size) {
  const auto [width, height] = size;
  switch (format.layout) {
    case Layout::Luma:
      break;
    case Layout::Planar420: {
      const PlaneRows chroma = {Half(width), Half(height)};
      return {PlaneRows{width, height}, chroma, chroma};
    }
    case Layout::Planar422: {
      const PlaneRows chroma = {Half(width), height};
      return {PlaneRows{width, height}, chroma, chroma};
    }
    case Layout::Yuyv:
    case Layout::Uyvy:
      return {PlaneRows{Half(width) * 4, height}};
    case Layout::Rgb:
      return {PlaneRows{width * format.bytesPerPixel, height}};
  }
  return {PlaneRows{width, height}};
}

}  // namespace qel::mjpeg
