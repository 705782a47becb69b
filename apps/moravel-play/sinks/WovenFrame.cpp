#include "sinks/WovenFrame.h"

#include <libyuv.h>

#include <array>
#include <memory>

#include "qelCore/SampleFactory.h"

namespace Moravel::Play {

namespace {

// The rows of one plane: how many bytes each has, how many there are in a field, and in a frame.
struct FieldPlane {
  int rowBytes = 0;
  int rows = 0;
  int frameRows = 0;
};
using FieldPlanes = std::array<FieldPlane, 3>;  // those that the format does not have are empty

FieldPlanes PlanesOf(const qel::IVideoSample& field) {
  const int width = field.GetWidth(), height = field.GetHeight();
  const int halfWidth = (width + 1) / 2;
  const auto full = [height](int rowBytes) { return FieldPlane{rowBytes, height, 2 * height}; };
  switch (field.GetFourCC()) {
    case qel::FourCC_I420:
    case qel::FourCC_YV12: {
      const FieldPlane chroma = {halfWidth, (height + 1) / 2, height};
      return {full(width), chroma, chroma};
    }
    case qel::FourCC_I422:
    case qel::FourCC_YV16:
      return {full(width), full(halfWidth), full(halfWidth)};
    case qel::FourCC_YUYV:
    case qel::FourCC_YVYU:
    case qel::FourCC_UYVY:
      return {full(halfWidth * 4)};
    case qel::FourCC_BGR3:
    case qel::FourCC_RGB3:
      return {full(width * 3)};
    case qel::FourCC_BGRA:
    case qel::FourCC_RGBA:
      return {full(width * 4)};
    default:
      return {full(width)};
  }
}

uint32_t FrameBytes(const FieldPlanes& planes) {
  uint32_t bytes = 0;
  for (const FieldPlane& plane : planes)
    bytes += static_cast<uint32_t>(plane.rowBytes) * static_cast<uint32_t>(plane.frameRows);
  return bytes;
}

// Puts the rows of a field into every second row of the frame, from the first or the second on.
void PlaceRows(const qel::IVideoSample& field, int firstRow, uint8_t* frame) {
  const qel::BufferConstPtr data = field.GetData();
  const uint8_t* from = data->GetInnerBuffer();
  for (const FieldPlane& plane : PlanesOf(field)) {
    libyuv::CopyPlane(from, plane.rowBytes, frame + firstRow * plane.rowBytes, 2 * plane.rowBytes,
                      plane.rowBytes, (plane.frameRows - firstRow + 1) / 2);
    from += plane.rowBytes * plane.rows;
    frame += plane.rowBytes * plane.frameRows;
  }
}

}  // namespace

qel::VideoSampleConstPtr WeaveFields(const qel::VideoSampleConstPtr& top,
                                     const qel::VideoSampleConstPtr& bottom) {
  const qel::VideoSampleConstPtr& known = top ? top : bottom;
  if (!known)
    return nullptr;
  const uint32_t bytes = FrameBytes(PlanesOf(*known));
  const std::shared_ptr<uint8_t[]> frame(new uint8_t[bytes]);
  PlaceRows(*known, 0, frame.get());
  PlaceRows(bottom ? *bottom : *known, 1, frame.get());
  return std::dynamic_pointer_cast<const qel::IVideoSample>(
      qel::CreateVideoSample(known->GetInfo(), known->GetChannelInfo(),
                             std::make_shared<qel::BufferView>(frame, frame.get(), bytes),
                             known->GetWidth(), 2 * known->GetHeight(), known->GetFourCC()));
}

}  // namespace Moravel::Play
