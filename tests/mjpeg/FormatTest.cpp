#include <cmath>

#include "mjpeg/MjpegTest.h"

namespace qel::mjpeg {

// A picture of one colour: its Y, U and V tell which byte is which.
Bytes MakePlainJpeg(int width, int height) {
  Bytes yuv;
  for (const int value : {220, 60, 140})
    yuv.insert(yuv.end(), size_t(width * height), uint8_t(value));
  const std::unique_ptr<void, decltype(&tjDestroy)> handle(tjInitCompress(), &tjDestroy);
  Bytes jpeg(tjBufSize(width, height, TJSAMP_444));
  uint8_t* to = jpeg.data();
  unsigned long size = jpeg.size();
  tjCompressFromYUV(handle.get(), yuv.data(), width, 1, height, TJSAMP_444, &to, &size, 95,
                    TJFLAG_NOREALLOC);
  jpeg.resize(size);
  return jpeg;
}

// A letter a byte.
std::string LayoutOf(const Bytes& picture) {
  std::string layout;
  for (const uint8_t byte : picture)
    layout += byte > 200 ? 'Y' : byte > 100 ? 'V' : 'U';
  return layout;
}

std::string Times(int count, const std::string& text) {
  std::string all;
  while (count-- > 0)
    all += text;
  return all;
}

TEST(FormatTest, LaysPlanesAndPixelsOutAsDocumented) {
  const Bytes jpeg = MakePlainJpeg(10, 7);
  const auto planes = [](int chroma, const char* first, const char* second) {
    return Times(70, "Y") + Times(chroma, first) + Times(chroma, second);
  };
  const std::pair<FourCC, std::string> formats[] = {
      {FourCC_Y800, Times(70, "Y")},          {FourCC_I420, planes(5 * 4, "U", "V")},
      {FourCC_YV12, planes(5 * 4, "V", "U")}, {FourCC_I422, planes(5 * 7, "U", "V")},
      {FourCC_YV16, planes(5 * 7, "V", "U")}, {FourCC_YUYV, Times(5 * 7, "YUYV")},
      {FourCC_YVYU, Times(5 * 7, "YVYU")},    {FourCC_UYVY, Times(5 * 7, "UYVY")}};
  for (const auto& [fourCC, layout] : formats)
    EXPECT_EQ(LayoutOf(BytesOf(TestDecoder(NewTrack(), fourCC).Decode(jpeg))), layout) << fourCC;
}

// RGB and grey of every subsampling, at even, odd and smallest sizes. That the other formats show
// the same is seen in the player's pictures.
TEST(FormatTest, ShowsWhatTurboJpegShows) {
  const std::pair<FourCC, int> formats[] = {{FourCC_Y800, TJPF_GRAY},
                                            {FourCC_BGR3, TJPF_BGR},
                                            {FourCC_BGRA, TJPF_BGRA},
                                            {FourCC_RGB3, TJPF_RGB},
                                            {FourCC_RGBA, TJPF_RGBA}};
  for (const auto& [fourCC, pixelFormat] : formats) {
    TestDecoder decoder(NewTrack(), fourCC);
    for (int subsampling = 0; subsampling < TJ_NUMSAMP; ++subsampling) {
      for (const auto& [width, height] : {std::pair{64, 48}, {63, 47}, {17, 2}, {6, 5}, {1, 1}}) {
        const Bytes jpeg = MakeJpeg(
            {.width = width, .height = height, .number = 0x5A3C, .subsampling = subsampling});
        const Bytes output = BytesOf(decoder.Decode(jpeg));
        const Bytes expected = ReferencePixels(jpeg, width, height, pixelFormat);
        ASSERT_EQ(output.size(), expected.size());
        double error = 0;
        for (size_t i = 0; i < output.size(); ++i)
          error += std::abs(output[i] - expected[i]);
        EXPECT_LE(error / double(output.size()), fourCC == FourCC_Y800 ? 0
                                                 : width < 20          ? 2.5
                                                                       : 1.5)
            << fourCC << " from " << subsampling << " " << width << "x" << height;
      }
    }
  }
}

// Against the mean of a grid of points in the area of each output pixel.
TEST(ScalingTest, ComesCloseToAreaAverages) {
  constexpr int kWidth = 320, kHeight = 240, kGrid = 12;
  const Bytes jpeg = MakeJpeg({.width = kWidth, .height = kHeight, .number = 0x9669});
  const Bytes luma = ReferencePixels(jpeg, kWidth, kHeight, TJPF_GRAY);
  TestDecoder decoder(NewTrack(), FourCC_Y800);
  for (const auto& [width, height] : std::vector<std::pair<int, int>>{
           {160, 120}, {80, 60}, {161, 119}, {33, 7}, {4, 3}, {640, 480}, {100, 300}}) {
    decoder.SetOutputSize(width, height);
    const Bytes output = BytesOf(decoder.Decode(jpeg));
    ASSERT_EQ(output.size(), size_t(width * height));
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
