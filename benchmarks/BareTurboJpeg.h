#pragma once

#include <turbojpeg.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <vector>

namespace Moravel::Bench {

// The peer of the library: TurboJPEG and nothing else, to planes in memory that is reused.
class BareTurboJpeg {
 public:
  // Throws when there is no picture, so that nobody is held against work that was not done.
  void Decode(const uint8_t* data, size_t size) {
    int width = 0, height = 0, subsampling = 0, colorspace = 0;
    tjDecompressHeader3(decoder_.get(), data, size, &width, &height, &subsampling, &colorspace);
    memory_.resize(tjBufSizeYUV2(width, 1, height, subsampling));
    uint8_t* planes[3] = {memory_.data()};
    planes[1] = planes[0] + tjPlaneSizeYUV(0, width, 0, height, subsampling);
    planes[2] = planes[1] + tjPlaneSizeYUV(1, width, 0, height, subsampling);
    if (tjDecompressToYUVPlanes(decoder_.get(), data, size, planes, width, nullptr, height, 0) != 0)
      throw std::runtime_error("no picture");
  }

 private:
  const std::unique_ptr<void, int (*)(void*)> decoder_{tjInitDecompress(), tjDestroy};
  std::vector<uint8_t> memory_;
};

}  // namespace Moravel::Bench
