#include <cmath>

#include "mjpeg/MjpegTest.h"

namespace qel::mjpeg {

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
