#include "elements/mjpeg/JpegPicture.h"
#include "mjpeg/MjpegTest.h"

namespace qel::mjpeg {

// With another size in its frame header.
Bytes Resized(Bytes jpeg, uint8_t frame, int width, int height) {
  auto at = jpeg.begin() + ptrdiff_t(FindSegment(jpeg, frame) + 5);
  for (const int byte : {height >> 8, height, width >> 8, width})
    *at++ = static_cast<uint8_t>(byte);
  return jpeg;
}

// Whether the bytes are taken as a motion-JPEG picture.
bool IsAccepted(const Bytes& jpeg) {
  try {
    JpegPicture picture(jpeg);
    return true;
  } catch (const QELRuntimeError& error) {
    return false;
  }
}

TEST(LimitsTest, PictureSize) {
  const auto isAccepted = [](int width, int height) {
    return IsAccepted(Resized(MakeJpeg({}), kBaselineFrame, width, height));
  };
  EXPECT_TRUE(isAccepted(kMaxPictureSide, 4320));
  EXPECT_TRUE(isAccepted(16, kMaxPictureSide));
  EXPECT_FALSE(isAccepted(kMaxPictureSide, 4321));
  EXPECT_FALSE(isAccepted(kMaxPictureSide + 1, 16));
  EXPECT_FALSE(isAccepted(0xFFFF, 0xFFFF));
  EXPECT_FALSE(isAccepted(0, 16));
}

TEST(LimitsTest, CompressedSize) {
  const Bytes baseline = MakeJpeg({});
  for (auto& [jpeg, limit] :
       {std::pair(baseline, kMaxCompressedBytes), {MakeProgressive(baseline), kMaxScannedBytes}}) {
    Bytes bytes = jpeg;
    bytes.resize(limit);
    EXPECT_TRUE(IsAccepted(bytes));
    bytes.push_back(0);
    EXPECT_FALSE(IsAccepted(bytes));
  }
}

TEST(LimitsTest, Scans) {
  const Bytes progressive = MakeProgressive(MakeJpeg({}));
  constexpr int kHeight = 4096;
  int scans = 0;
  for (size_t i = 1; i < progressive.size(); ++i)
    scans += progressive[i - 1] == 0xFF && progressive[i] == kStartOfScan;
  const int widest = int(kMaxScannedPixels / kHeight / scans);
  EXPECT_TRUE(IsAccepted(Resized(progressive, kProgressiveFrame, widest, kHeight)));
  EXPECT_FALSE(IsAccepted(Resized(progressive, kProgressiveFrame, widest + 1, kHeight)));
}

TEST(LimitsTest, OnlyMotionJpeg) {
  const Bytes jpeg = MakeJpeg({});
  const size_t frame = FindSegment(jpeg, kBaselineFrame);
  Bytes arithmetic = jpeg, twoComponents = jpeg;
  arithmetic[frame + 1] = kArithmeticFrame;
  twoComponents[frame + 9] = 2;
  Bytes colours = MakeJpeg({.subsampling = TJSAMP_444});  // named R, G, B: not converted
  for (size_t i = 0; i < 3; ++i) {
    colours[FindSegment(colours, kBaselineFrame) + 10 + 3 * i] = uint8_t("RGB"[i]);
    colours[FindSegment(colours, kStartOfScan) + 5 + 2 * i] = uint8_t("RGB"[i]);
  }
  colours = WithoutSegments(colours, 0xE0);
  for (const Bytes& other : {arithmetic, twoComponents, colours})
    EXPECT_FALSE(IsAccepted(other));
}

TEST(LimitsTest, OutputSize) {
  TestDecoder decoder(NewTrack(), FourCC_I420, 32, 24);
  for (const auto& [width, height] :
       std::vector<std::pair<int64_t, int64_t>>{{-1, -1},
                                                {64, 0},
                                                {0, 48},
                                                {kMaxPictureSide + 1, 1},
                                                {1, kMaxPictureSide + 1},
                                                {kMaxPictureSide, 4321},
                                                {int64_t{1} << 32, int64_t{1} << 32}})
    EXPECT_THROW(decoder.SetOutputSize(width, height), QELRuntimeError) << width << "x" << height;
  const Bytes jpeg = MakeJpeg({});
  EXPECT_EQ(decoder.Decode(jpeg)->GetWidth(), 32);  // the last size that was accepted
  decoder.SetOutputSize(kMaxPictureSide, 2);
  EXPECT_EQ(decoder.Decode(jpeg)->GetWidth(), kMaxPictureSide);
  decoder.SetOutputSize(0, 0);
  EXPECT_EQ(decoder.Decode(jpeg)->GetWidth(), 64);
}

TEST(LimitsTest, Formats) {
  TestDecoder decoder(NewTrack());
  for (const FourCC fourCC :
       {FourCC_undefined, FourCC_YU2F, FourCC_V210, FourCC_UY16, FourCC_YY2F, FourCC(7)}) {
    try {
      decoder.filter_->SetInitConfig(NewInitConfig(fourCC));
      ADD_FAILURE() << fourCC;
    } catch (const QELRuntimeError& error) {
      EXPECT_THAT(error.what(), testing::HasSubstr("Y800, YUYV, YVYU, UYVY, YV12, YV16, I420, I422,"
                                                   " BGR3, BGRA, RGB3, RGBA"));
    }
  }
  EXPECT_EQ(decoder.Decode(MakeJpeg({}))->GetFourCC(), FourCC_I420);
}

TEST(LimitsTest, ElementsAreSetUpBeforeTheFirstPush) {
  const MediaFilterPtr element = NewElement();
  const InfoContainerConstPtr input = CreateInfoContainer(NewTrack(), nullptr);
  const auto push = [&] { element->PushSample(NewContainer(NewBuffer(MakeJpeg({})))); };
  EXPECT_EQ(element->GetDefinedInput(""), nullptr);
  element->DefineInput(input, "");
  EXPECT_EQ(element->GetDefinedInput(""), input);
  EXPECT_THROW(element->SetInitConfig(nullptr), QELRuntimeError);
  EXPECT_THROW(push(), QELRuntimeError) << "not configured";
  element->SetInitConfig(NewInitConfig(FourCC_I420));
  EXPECT_NO_THROW(push());
  element->DefineInput(nullptr, "");
  EXPECT_THROW(push(), QELRuntimeError) << "not defined";
}

}  // namespace qel::mjpeg
