#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "elements/mjpeg/YuvPicture.h"

namespace qel::mjpeg {

// Limits that hold before anything is allocated. Pictures up to 8K (8192 x 4320).
constexpr int kMaxPictureSide = 8192;
constexpr int64_t kMaxPicturePixels = int64_t{8192} * 4320;
// Five bits for each pixel of the largest picture.
constexpr size_t kMaxCompressedBytes = size_t{24} << 20;
// Pictures that come in several scans take far longer to decode, and each scan passes over the
// whole picture: limits for their bytes, and for their pixels times scans (fifteen scans at 4K).
constexpr size_t kMaxScannedBytes = size_t{8} << 20;
constexpr int64_t kMaxScannedPixels = int64_t{15} * 4096 * 2160;

// Whether a picture of that size is within the limits.
bool IsWithinLimits(int64_t width, int64_t height);

// The size to decode a picture of size `coded` at, so that `output` can be made from it: the
// smallest that TurboJPEG offers and that is no smaller than `output`, at most `coded` itself.
Size DecodeSize(Size coded, Size output);

// One encoded JPEG picture. Each has a TurboJPEG handle of its own: handles keep tables from one
// picture to the next, and making one costs nothing beside a picture. Used by one thread.
class JpegPicture {
 public:
  enum class Planes { YUV, YVU, Luma };  // what to decode, in which order

  // Reads what comes before the picture's data; what lies in front of the first start of image, and
  // what follows the first picture, is left alone.
  // QELRuntimeError when it is no motion-JPEG picture, or beyond a limit. `encoded` must outlive
  // the object.
  explicit JpegPicture(std::span<const uint8_t> encoded);

  Size CodedSize() const { return size_; }
  // How much chroma it has: "4:2:2"; "gray" for none, empty for an unusual kind.
  const char* SamplingName() const;

  // Decodes the picture at `size`, one of DecodeSize. The planes lie one after the other in the
  // order asked for; the planes of chroma that was not asked for or is not there are neutral.
  // A damaged picture that can still be shown comes with its damage; QELRuntimeError when there is
  // nothing to show.
  YuvPictureConstPtr Decode(Size size, Planes planes);

 private:
  struct CloseHandle {
    void operator()(void* handle) const;
  };

  void ReadHeader();
  void DecodeInto(const YuvPicture& picture, uint8_t* memory);
  bool Decompress(const YuvPicture& picture, uint8_t* memory);
  void NoteDamage();

  const std::span<const uint8_t> encoded_;
  const std::unique_ptr<void, CloseHandle> handle_;
  Size size_;
  int subsampling_ = -1;  // one of TJSAMP
  std::string damage_;    // the first warning about the picture
};

}  // namespace qel::mjpeg
