#include <cmath>
#include <tuple>

#include "mjpeg/MjpegTest.h"

namespace qel::mjpeg {

enum class Layout { Planar420, Planar422, Packed, Rgb };

// Components are Y, U, V or R, G, B.
struct FormatCase {
  FourCC fourCC;
  const char* name;
  Layout layout;
  size_t order[3];    // of each component: its plane, or its byte in a pixel or pair of them
  size_t pixelBytes;  // of RGB
};

const FormatCase kFormatCases[] = {
    {FourCC_Y800, "Y800", Layout::Rgb, {0}, 1},
    {FourCC_I420, "I420", Layout::Planar420, {0, 1, 2}, 0},
    {FourCC_YV12, "YV12", Layout::Planar420, {0, 2, 1}, 0},
    {FourCC_I422, "I422", Layout::Planar422, {0, 1, 2}, 0},
    {FourCC_YV16, "YV16", Layout::Planar422, {0, 2, 1}, 0},
    {FourCC_YUYV, "YUYV", Layout::Packed, {0, 1, 3}, 0},
    {FourCC_YVYU, "YVYU", Layout::Packed, {0, 3, 1}, 0},
    {FourCC_UYVY, "UYVY", Layout::Packed, {1, 0, 2}, 0},
    {FourCC_BGR3, "BGR3", Layout::Rgb, {2, 1, 0}, 3},
    {FourCC_BGRA, "BGRA", Layout::Rgb, {2, 1, 0}, 4},
    {FourCC_RGB3, "RGB3", Layout::Rgb, {0, 1, 2}, 3},
    {FourCC_RGBA, "RGBA", Layout::Rgb, {0, 1, 2}, 4},
};

// Where the sample of a pixel's component stands in a picture of that width and height.
size_t At(const FormatCase& format, size_t component, size_t x, size_t y, size_t w, size_t h) {
  const size_t half = (w + 1) / 2, order = format.order[component];
  if (format.layout == Layout::Rgb)
    return (y * w + x) * format.pixelBytes + order;
  if (format.layout == Layout::Packed)
    return y * half * 4 + (component == 0 ? x * 2 : x / 2 * 4) + order;
  if (component == 0)
    return y * w + x;
  const size_t step = format.layout == Layout::Planar420 ? 2 : 1;
  return w * h + (order - 1) * half * ((h + step - 1) / step) + y / step * half + x / 2;
}

size_t BytesOfFormat(const FormatCase& format, size_t w, size_t h) {
  const size_t half = (w + 1) / 2;
  const size_t bytes[] = {w * h + 2 * half * ((h + 1) / 2), w * h + 2 * half * h, 4 * half * h,
                          w * h * format.pixelBytes};
  return bytes[size_t(format.layout)];
}

double ToYuv(const uint8_t* rgb, size_t component) {
  const double y = 0.299 * rgb[0] + 0.587 * rgb[1] + 0.114 * rgb[2];
  return component == 1 ? 128 + (rgb[2] - y) / 1.772 : 128 + (rgb[0] - y) / 1.402;
}

class FormatTest : public testing::TestWithParam<std::tuple<FormatCase, int>> {};

// Every format and subsampling, at even, odd and smallest sizes, against TurboJPEG's own RGB.
TEST_P(FormatTest, ShowsWhatTurboJpegShows) {
  const auto& [format, subsampling] = GetParam();
  TestDecoder decoder(NewTrack(), format.fourCC);
  const bool rgb = format.layout == Layout::Rgb && format.pixelBytes > 1;
  for (const auto& [width, height] : {std::pair{64, 48}, {63, 47}, {17, 2}, {6, 5}, {1, 1}}) {
    const Bytes jpeg =
        MakeJpeg({.width = width, .height = height, .number = 0x5A3C, .subsampling = subsampling});
    const VideoSampleConstPtr picture = decoder.Decode(jpeg);
    const Bytes output = BytesOf(picture);
    const Bytes pixels = ReferencePixels(jpeg, width, height, TJPF_RGB);
    const Bytes luma = ReferencePixels(jpeg, width, height, TJPF_GRAY);
    const size_t w = size_t(width), h = size_t(height);
    ASSERT_EQ(output.size(), BytesOfFormat(format, w, h));
    EXPECT_EQ(picture->GetFourCC(), format.fourCC);
    EXPECT_EQ(std::pair(picture->GetWidth(), picture->GetHeight()), std::pair(width, height));
    for (size_t c = 0; c < (format.pixelBytes == 1 ? 1 : 3); ++c) {
      // Pixels that share a sample share their mean.
      std::vector<double> sums(output.size()), counts(output.size());
      for (size_t i = 0; i < w * h; ++i) {
        const size_t at = At(format, c, i % w, i / w, w, h);
        sums[at] += rgb ? pixels[3 * i + c] : c == 0 ? luma[i] : ToYuv(&pixels[3 * i], c);
        counts[at] += 1;
      }
      double error = 0, samples = 0;
      for (size_t at = 0; at < output.size(); ++at) {
        error += counts[at] == 0 ? 0 : std::abs(output[at] - sums[at] / counts[at]);
        samples += counts[at] == 0 ? 0 : 1;
      }
      // Half of an odd width falls between the samples.
      const double tolerance = !rgb && c == 0 ? 0 : width < 20 ? 2.5 : 1.5;
      EXPECT_LE(error / samples, tolerance) << width << "x" << height << " component " << c;
    }
    for (size_t alpha = 3; format.pixelBytes == 4 && alpha < output.size(); alpha += 4)
      ASSERT_EQ(output[alpha], 255);
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

// Against the mean of a grid of points in the area of each output pixel.
TEST(ScalingTest, ComesCloseToAreaAverages) {
  constexpr int kWidth = 320, kHeight = 240, kGrid = 12;
  const Bytes jpeg = MakeJpeg({.width = kWidth, .height = kHeight, .number = 0x9669});
  const Bytes luma = ReferencePixels(jpeg, kWidth, kHeight, TJPF_GRAY);
  TestDecoder decoder(NewTrack(), FourCC_YV12);
  for (const auto& [width, height] : std::vector<std::pair<int, int>>{
           {160, 120}, {80, 60}, {161, 119}, {33, 7}, {4, 3}, {640, 480}, {100, 300}}) {
    decoder.SetOutputSize(width, height);
    const Bytes output = BytesOf(decoder.Decode(jpeg));
    ASSERT_EQ(output.size(), BytesOfFormat(kFormatCases[1], size_t(width), size_t(height)));
    double error = 0;
    for (int pixel = 0; pixel < width * height; ++pixel) {
      int sum = 0;
      for (int point = 0; point < kGrid * kGrid; ++point) {
        const int x = (pixel % width * kGrid + point % kGrid) * kWidth / (kGrid * width);
        const int y = (pixel / width * kGrid + point / kGrid) * kHeight / (kGrid * height);
        sum += luma[size_t(y * kWidth + x)];
      }
      error += std::abs(output[size_t(pixel)] - double(sum) / (kGrid * kGrid));
    }
    EXPECT_LT(error / (width * height), 2.0) << width << "x" << height;
  }
}

}  // namespace qel::mjpeg
