#include <cmath>
#include <tuple>

#include "mjpeg/MjpegTest.h"

namespace qel::mjpeg {

// Where the samples of a pixel stand in a format: components are Y, U, V or R, G, B.
struct FormatCase {
  FourCC fourCC;
  const char* name;
  bool rgb;
  size_t (*bytes)(size_t width, size_t height);
  size_t (*at)(size_t component, size_t x, size_t y, size_t width, size_t height);
};

size_t Half(size_t side) {
  return (side + 1) / 2;
}

template <bool kSwapped, bool kHalfRows>
size_t PlanarAt(size_t component, size_t x, size_t y, size_t width, size_t height) {
  if (component == 0)
    return y * width + x;
  const size_t rows = kHalfRows ? Half(height) : height;
  const size_t second = (component == 2) != kSwapped ? Half(width) * rows : 0;
  return width * height + second + (kHalfRows ? y / 2 : y) * Half(width) + x / 2;
}

template <size_t kY, size_t kU, size_t kV>
size_t PackedAt(size_t component, size_t x, size_t y, size_t width, size_t) {
  const size_t pair = y * Half(width) * 4 + x / 2 * 4;
  return pair + (component == 0 ? kY + x % 2 * 2 : component == 1 ? kU : kV);
}

template <size_t kPixel, bool kBlueFirst>
size_t RgbAt(size_t component, size_t x, size_t y, size_t width, size_t) {
  return (y * width + x) * kPixel + (kBlueFirst ? 2 - component : component);
}

size_t Bytes420(size_t width, size_t height) {
  return width * height + 2 * Half(width) * Half(height);
}
size_t Bytes422(size_t width, size_t height) {
  return width * height + 2 * Half(width) * height;
}
size_t BytesPacked(size_t width, size_t height) {
  return Half(width) * 4 * height;
}
template <size_t kPixel>
size_t BytesOfPixels(size_t width, size_t height) {
  return width * height * kPixel;
}

const FormatCase kFormatCases[] = {
    {FourCC_Y800, "Y800", false, BytesOfPixels<1>, PlanarAt<false, true>},
    {FourCC_I420, "I420", false, Bytes420, PlanarAt<false, true>},
    {FourCC_YV12, "YV12", false, Bytes420, PlanarAt<true, true>},
    {FourCC_I422, "I422", false, Bytes422, PlanarAt<false, false>},
    {FourCC_YV16, "YV16", false, Bytes422, PlanarAt<true, false>},
    {FourCC_YUYV, "YUYV", false, BytesPacked, PackedAt<0, 1, 3>},
    {FourCC_YVYU, "YVYU", false, BytesPacked, PackedAt<0, 3, 1>},
    {FourCC_UYVY, "UYVY", false, BytesPacked, PackedAt<1, 0, 2>},
    {FourCC_BGR3, "BGR3", true, BytesOfPixels<3>, RgbAt<3, true>},
    {FourCC_BGRA, "BGRA", true, BytesOfPixels<4>, RgbAt<4, true>},
    {FourCC_RGB3, "RGB3", true, BytesOfPixels<3>, RgbAt<3, false>},
    {FourCC_RGBA, "RGBA", true, BytesOfPixels<4>, RgbAt<4, false>},
};

double ToYuv(const uint8_t* rgb, size_t component) {
  const double r = rgb[0], g = rgb[1], b = rgb[2];
  const double y = 0.299 * r + 0.587 * g + 0.114 * b;
  return component == 0 ? y : component == 1 ? 128 + (b - y) / 1.772 : 128 + (r - y) / 1.402;
}

class FormatTest : public testing::TestWithParam<std::tuple<FormatCase, int>> {};

// Every format and subsampling, at even, odd and smallest sizes, against TurboJPEG's own RGB.
TEST_P(FormatTest, ShowsWhatTurboJpegShows) {
  const auto& [format, subsampling] = GetParam();
  TestDecoder decoder(NewTrack(), format.fourCC);
  for (const auto& [width, height] : {std::pair{64, 48}, {63, 47}, {17, 2}, {6, 5}, {1, 1}}) {
    const Bytes jpeg =
        MakeJpeg({.width = width, .height = height, .number = 0x5A3C, .subsampling = subsampling});
    const VideoSampleConstPtr picture = decoder.Decode(jpeg);
    const Bytes output = BytesOf(picture);
    const Bytes rgb = ReferencePixels(jpeg, TJPF_RGB);
    const Bytes luma = ReferencePixels(jpeg, TJPF_GRAY);
    const size_t w = size_t(width), h = size_t(height);
    ASSERT_EQ(output.size(), format.bytes(w, h));
    EXPECT_EQ(picture->GetFourCC(), format.fourCC);
    EXPECT_EQ(std::pair(picture->GetWidth(), picture->GetHeight()), std::pair(width, height));
    for (size_t c = 0; c < (format.fourCC == FourCC_Y800 ? 1 : 3); ++c) {
      // Pixels that share a sample share their mean.
      std::vector<double> sums(output.size()), counts(output.size());
      for (size_t i = 0; i < w * h; ++i) {
        const size_t at = format.at(c, i % w, i / w, w, h);
        sums[at] += format.rgb ? rgb[3 * i + c] : c == 0 ? luma[i] : ToYuv(&rgb[3 * i], c);
        counts[at] += 1;
      }
      double error = 0, samples = 0;
      for (size_t at = 0; at < output.size(); ++at) {
        error += counts[at] == 0 ? 0 : std::abs(output[at] - sums[at] / counts[at]);
        samples += counts[at] == 0 ? 0 : 1;
      }
      // Half of an odd width falls between the samples.
      const double tolerance = !format.rgb && c == 0 ? 0 : width < 20 ? 2.5 : 1.5;
      EXPECT_LE(error / samples, tolerance) << width << "x" << height << " component " << c;
    }
    if (format.fourCC == FourCC_BGRA || format.fourCC == FourCC_RGBA) {
      for (size_t alpha = 3; alpha < output.size(); alpha += 4)
        ASSERT_EQ(output[alpha], 255);
    }
  }
}

std::string NameOf(const testing::TestParamInfo<std::tuple<FormatCase, int>>& test) {
  static const char* const kSubsamplings[] = {"444", "422", "420", "grey", "440", "411"};
  const auto& [format, subsampling] = test.param;
  return std::string(format.name) + "_from_" + kSubsamplings[subsampling];
}

INSTANTIATE_TEST_SUITE_P(All, FormatTest,
                         testing::Combine(testing::ValuesIn(kFormatCases),
                                          testing::Range(0, TJ_NUMSAMP)),
                         NameOf);

// Where nothing is converted, the planes are TurboJPEG's, bit by bit.
TEST(PlanesTest, AreExactWhereTheLayoutIsTheJpegs) {
  for (const auto& [subsampling, fourCC] :
       {std::pair{TJSAMP_420, FourCC_I420}, {TJSAMP_422, FourCC_I422}}) {
    const Bytes jpeg = MakeJpeg({.number = 0x1234, .subsampling = subsampling});
    Bytes planes(tjBufSizeYUV2(64, 1, 48, subsampling));
    const tjhandle handle = tjInitDecompress();
    tjDecompressToYUV2(handle, jpeg.data(), jpeg.size(), planes.data(), 64, 1, 48, 0);
    tjDestroy(handle);
    TestDecoder decoder(NewTrack(), fourCC);
    EXPECT_EQ(BytesOf(decoder.Decode(jpeg)), planes);
  }
}

// Against an average over the area of each output pixel, by double arithmetic.
TEST(ScalingTest, ComesCloseToAreaAverages) {
  constexpr int kWidth = 320, kHeight = 240;
  const Bytes jpeg = MakeJpeg({.width = kWidth, .height = kHeight, .number = 0x9669});
  const Bytes luma = ReferencePixels(jpeg, TJPF_GRAY);
  const auto average = [&](double left, double right, double top, double bottom) {
    double sum = 0, area = 0;
    for (int y = int(top); y < std::min(kHeight, int(std::ceil(bottom))); ++y) {
      for (int x = int(left); x < std::min(kWidth, int(std::ceil(right))); ++x) {
        const double share = (std::min(right, x + 1.0) - std::max(left, double(x))) *
                             (std::min(bottom, y + 1.0) - std::max(top, double(y)));
        sum += share * luma[size_t(y * kWidth + x)];
        area += share;
      }
    }
    return sum / area;
  };
  TestDecoder decoder(NewTrack(), FourCC_YV12);
  for (const auto& [width, height] : {std::pair{160, 120},
                                      {80, 60},
                                      {40, 30},
                                      {161, 119},
                                      {200, 90},
                                      {33, 7},
                                      {4, 3},
                                      {640, 480},
                                      {500, 250},
                                      {100, 300}}) {
    decoder.SetOutputSize(width, height);
    const Bytes output = BytesOf(decoder.Decode(jpeg));
    ASSERT_EQ(output.size(), Bytes420(size_t(width), size_t(height)));
    const double dx = double(kWidth) / width, dy = double(kHeight) / height;
    double error = 0;
    for (int i = 0; i < width * height; ++i) {
      const int x = i % width, y = i / width;
      error += std::abs(output[size_t(i)] - average(x * dx, (x + 1) * dx, y * dy, (y + 1) * dy)) /
               (width * height);
    }
    EXPECT_LT(error, 2.0) << width << "x" << height;
  }
}

}  // namespace qel::mjpeg
