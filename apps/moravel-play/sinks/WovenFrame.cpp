#include "sinks/WovenFrame.h"

#include <libyuv.h>

#include <memory>

#include "elements/mjpeg/PixelFormat.h"
#include "qel/QELRuntimeError.h"
#include "qelCore/SampleFactory.h"

namespace Moravel::Play {

namespace {

using qel::mjpeg::PictureRows;
using qel::mjpeg::PixelFormat;
using qel::mjpeg::PlaneRows;

// Puts the rows of a field into every second row of the frame, from the first or the second on.
void PlaceRows(const qel::IVideoSample& field, const PictureRows& fieldRows,
               const PictureRows& frameRows, int firstRow, uint8_t* frame) {
  const qel::BufferConstPtr data = field.GetData();
  const uint8_t* from = data->GetInnerBuffer();
  for (size_t i = 0; i < frameRows.size(); ++i) {
    const int rowBytes = frameRows[i].rowBytes;
    libyuv::CopyPlane(from, rowBytes, frame + firstRow * rowBytes, 2 * rowBytes, rowBytes,
                      (frameRows[i].rows - firstRow + 1) / 2);
    from += fieldRows[i].Bytes();
    frame += frameRows[i].Bytes();
  }
}

}  // namespace

qel::VideoSampleConstPtr WeaveFields(const qel::VideoSampleConstPtr& top,
                                     const qel::VideoSampleConstPtr& bottom) {
  const qel::VideoSampleConstPtr& known = top ? top : bottom;
  if (!known)
    return nullptr;
  const PixelFormat* const format = qel::mjpeg::FindPixelFormat(known->GetFourCC());
  if (format == nullptr)
    throw qel::QELRuntimeError("fields of this pixel format cannot be woven");
  const int width = known->GetWidth(), height = known->GetHeight();
  const PictureRows fieldRows = RowsOf(*format, {width, height});
  const PictureRows frameRows = RowsOf(*format, {width, 2 * height});
  uint32_t bytes = 0;
  for (const PlaneRows& plane : frameRows)
    bytes += static_cast<uint32_t>(plane.Bytes());
  const std::shared_ptr<uint8_t[]> frame(new uint8_t[bytes]);
  PlaceRows(*known, fieldRows, frameRows, 0, frame.get());
  PlaceRows(bottom ? *bottom : *known, fieldRows, frameRows, 1, frame.get());
  return std::dynamic_pointer_cast<const qel::IVideoSample>(
      qel::CreateVideoSample(known->GetInfo(), known->GetChannelInfo(),
                             std::make_shared<qel::BufferView>(frame, frame.get(), bytes), width,
                             2 * height, format->fourCC));
}

}  // namespace Moravel::Play
