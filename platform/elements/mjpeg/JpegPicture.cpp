#include "elements/mjpeg/JpegPicture.h"

#include <turbojpeg.h>

#include <algorithm>
#include <utility>

#include "elements/jpeg/JpegMarkers.h"
#include "elements/jpeg/TurboJpegError.h"
#include "elements/mjpeg/JpegStructure.h"
#include "elements/mjpeg/PictureMemory.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel::mjpeg {

namespace {

constexpr int kFlags = TJFLAG_LIMITSCANS;

// A row of chroma without colour, for all rows of a picture that has none.
const uint8_t* NeutralRow() {
  static const auto row = [] {
    std::array<uint8_t, kMaxPictureSide> samples = {};
    samples.fill(128);
    return samples;
  }();
  return row.data();
}

void CheckCompressedSize(size_t bytes, size_t limit) {
  if (bytes == 0)
    throw QELRuntimeError("motion-JPEG picture is empty");
  if (bytes > limit) {
    throw QELRuntimeError(QEL_TEXT("motion-JPEG picture has " << bytes << " bytes, at most "
                                                              << limit << " are supported"));
  }
}

void CheckStructure(const JpegStructure& structure, Size size, size_t bytes) {
  if (structure.arithmeticCoding)
    throw QELRuntimeError("JPEG picture is arithmetic coded, motion JPEG is Huffman coded");
  if (structure.scans <= 1)
    return;
  CheckCompressedSize(bytes, kMaxScannedBytes);
  const int64_t pixels = int64_t{size.width} * size.height;
  if (structure.scans * pixels > kMaxScannedPixels) {
    throw QELRuntimeError(QEL_TEXT("motion-JPEG picture of "
                                   << size.width << "x" << size.height << " has " << structure.scans
                                   << " scans, at most " << kMaxScannedPixels / pixels
                                   << " are supported at that size"));
  }
}

// What is real of a plane: TurboJPEG's planes are rounded up to whole chroma samples.
Plane ComponentPlane(int component, Size size, int subsampling, const uint8_t* data) {
  const int width = tjPlaneWidth(component, size.width, subsampling);
  const int height = tjPlaneHeight(component, size.height, subsampling);
  return {data, width, component == 0 ? size : Size{width, height}};
}

}  // namespace

bool IsWithinLimits(int64_t width, int64_t height) {
  return width > 0 && height > 0 && width <= kMaxPictureSide && height <= kMaxPictureSide &&
         width * height <= kMaxPicturePixels;
}

Size DecodeSize(Size coded, Size output) {
  int count = 0;
  const tjscalingfactor* const factors = tjGetScalingFactors(&count);
  Size smallest = coded;
  for (const tjscalingfactor& factor : std::span(factors, static_cast<size_t>(count))) {
    const Size size = {TJSCALED(coded.width, factor), TJSCALED(coded.height, factor)};
    if (size.width >= output.width && size.height >= output.height &&
        size.width <= smallest.width && size.height <= smallest.height)
      smallest = size;
  }
  return smallest;
}

void JpegPicture::CloseHandle::operator()(void* handle) const {
  tjDestroy(handle);
}

JpegPicture::JpegPicture(std::span<const uint8_t> encoded)
    : encoded_(FromStartOfImage(encoded)), handle_(tjInitDecompress()) {
  if (!handle_)
    throw QELRuntimeError(QEL_TEXT("TurboJPEG can not start: " << TurboJpegError(nullptr)));
  CheckCompressedSize(encoded.size(), kMaxCompressedBytes);
  ReadHeader();
  CheckStructure(ReadJpegStructure(encoded_), size_, encoded_.size());
}

void JpegPicture::ReadHeader() {
  int colorSpace = -1;
  const int result = tjDecompressHeader3(handle_.get(), encoded_.data(), encoded_.size(),
                                         &size_.width, &size_.height, &subsampling_, &colorSpace);
  if (result != 0) {
    // An error that follows a warning is called a warning too.
    if (tjGetErrorCode(handle_.get()) != TJERR_WARNING || subsampling_ < 0)
      throw QELRuntimeError(QEL_TEXT("no motion-JPEG picture: " << TurboJpegError(handle_.get())));
    NoteDamage();
  }
  if (size_.width == 0)
    throw QELRuntimeError("no motion-JPEG picture: JPEG tables without a picture");
  if (!IsWithinLimits(size_.width, size_.height)) {
    throw QELRuntimeError(QEL_TEXT("motion-JPEG picture is " << size_.width << "x" << size_.height
                                                             << ", at most " << kMaxPictureSide
                                                             << " a side and " << kMaxPicturePixels
                                                             << " pixels are supported"));
  }
  if (colorSpace != TJCS_YCbCr && colorSpace != TJCS_GRAY)
    throw QELRuntimeError("JPEG picture is neither YCbCr nor grey, motion JPEG is one of them");
}

const char* JpegPicture::SamplingName() const {
  switch (subsampling_) {
    case TJSAMP_444:
      return "4:4:4";
    case TJSAMP_422:
      return "4:2:2";
    case TJSAMP_420:
      return "4:2:0";
    case TJSAMP_440:
      return "4:4:0";
    case TJSAMP_411:
      return "4:1:1";
    case TJSAMP_GRAY:
      return "gray";
    default:
      return "";
  }
}

YuvPictureConstPtr JpegPicture::Decode(Size size, Planes planes) {
  const bool grey = planes == Planes::Luma || subsampling_ == TJSAMP_GRAY;
  const int subsampling = grey ? TJSAMP_GRAY : subsampling_;
  const std::array<int, 3> order = {0, planes == Planes::YVU ? 2 : 1,
                                    planes == Planes::YVU ? 1 : 2};
  const auto components = std::span(order).first(grey ? 1 : 3);

  const auto picture = std::make_shared<YuvPicture>();
  for (const int component : components)
    picture->bytes += tjPlaneSizeYUV(component, size.width, 0, size.height, subsampling);
  const std::shared_ptr<uint8_t[]> memory = TakePictureMemory(picture->bytes);
  picture->codedSize = size_;
  picture->size = size;
  picture->planes.fill({NeutralRow(), 0, size});
  picture->memory = memory;
  uint8_t* data = memory.get();
  for (const int component : components) {
    picture->planes[static_cast<size_t>(component)] =
        ComponentPlane(component, size, subsampling, data);
    data += tjPlaneSizeYUV(component, size.width, 0, size.height, subsampling);
  }
  DecodeInto(*picture, memory.get());
  picture->damage = damage_;
  return picture;
}

// TurboJPEG calls an error that follows a warning a warning, although there is no picture. The last
// sample tells: it stays as it was, whatever that is, when the picture was not written.
void JpegPicture::DecodeInto(const YuvPicture& picture, uint8_t* memory) {
  const Plane& luma = picture.planes[0];
  uint8_t& lastSample =
      memory[size_t(luma.stride) * size_t(luma.size.height - 1) + size_t(luma.size.width - 1)];
  for (const uint8_t mark : {uint8_t{77}, uint8_t{178}}) {
    lastSample = mark;
    if (Decompress(picture, memory))
      return;
    if (tjGetErrorCode(handle_.get()) != TJERR_WARNING)
      break;
    if (lastSample != mark) {
      NoteDamage();
      return;
    }
  }
  throw QELRuntimeError(
      QEL_TEXT("motion-JPEG picture can not be decoded: " << TurboJpegError(handle_.get())));
}

bool JpegPicture::Decompress(const YuvPicture& picture, uint8_t* memory) {
  const auto [width, height] = picture.size;
  if (picture.planes[1].stride == 0) {
    return tjDecompress2(handle_.get(), encoded_.data(), encoded_.size(), memory, width, 0, height,
                         TJPF_GRAY, kFlags) == 0;
  }
  std::array<uint8_t*, 3> planes = {};
  for (size_t component = 0; component < planes.size(); ++component)
    planes[component] = memory + (picture.planes[component].data - memory);
  return tjDecompressToYUVPlanes(handle_.get(), encoded_.data(), encoded_.size(), planes.data(),
                                 width, nullptr, height, kFlags) == 0;
}

void JpegPicture::NoteDamage() {
  if (damage_.empty())
    damage_ = TurboJpegError(handle_.get());
}

}  // namespace qel::mjpeg
