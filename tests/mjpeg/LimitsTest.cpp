#include "elements/mjpeg/JpegPicture.h"
#include "mjpeg/MjpegTest.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel::mjpeg {

namespace {

constexpr uint8_t kBaselineFrame = 0xC0;
constexpr uint8_t kProgressiveFrame = 0xC2;
constexpr uint8_t kArithmeticFrame = 0xC9;
constexpr uint8_t kScanMarker = 0xDA;

Bytes Resized(Bytes jpeg, uint8_t frame, int width, int height) {
  const size_t at = FindSegment(jpeg, frame) + 5;
  jpeg[at] = static_cast<uint8_t>(height >> 8);
  jpeg[at + 1] = static_cast<uint8_t>(height);
  jpeg[at + 2] = static_cast<uint8_t>(width >> 8);
  jpeg[at + 3] = static_cast<uint8_t>(width);
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

}  // namespace

TEST(LimitsTest, PictureSize) {
  const Bytes jpeg = MakeJpeg({});
  EXPECT_TRUE(IsAccepted(Resized(jpeg, kBaselineFrame, kMaxPictureSide, 4320)));
  EXPECT_TRUE(IsAccepted(Resized(jpeg, kBaselineFrame, 16, kMaxPictureSide)));
  EXPECT_FALSE(IsAccepted(Resized(jpeg, kBaselineFrame, kMaxPictureSide, 4321)));
  EXPECT_FALSE(IsAccepted(Resized(jpeg, kBaselineFrame, kMaxPictureSide + 1, 16)));
  EXPECT_FALSE(IsAccepted(Resized(jpeg, kBaselineFrame, 0xFFFF, 0xFFFF)));
  EXPECT_FALSE(IsAccepted(Resized(jpeg, kBaselineFrame, 0, 16)));
}

TEST(LimitsTest, CompressedSize) {
  Bytes jpeg = MakeJpeg({});
  jpeg.resize(kMaxCompressedBytes);
  EXPECT_TRUE(IsAccepted(jpeg));
  jpeg.push_back(0);
  EXPECT_FALSE(IsAccepted(jpeg));
  Bytes progressive = MakeProgressive(MakeJpeg({}));
  progressive.resize(kMaxScannedBytes);
  EXPECT_TRUE(IsAccepted(progressive));
  progressive.push_back(0);
  EXPECT_FALSE(IsAccepted(progressive));
}

TEST(LimitsTest, Scans) {
  const Bytes progressive = MakeProgressive(MakeJpeg({}));
  constexpr int kHeight = 4096;
  const int scans = [&] {
    int count = 0;
    for (size_t i = 1; i < progressive.size(); ++i)
      count += progressive[i - 1] == 0xFF && progressive[i] == kScanMarker;
    return count;
  }();
  const int widest = int(kMaxScannedPixels / kHeight / scans);
  EXPECT_TRUE(IsAccepted(Resized(progressive, kProgressiveFrame, widest, kHeight)));
  EXPECT_FALSE(IsAccepted(Resized(progressive, kProgressiveFrame, widest + 1, kHeight)));
}

TEST(LimitsTest, OnlyMotionJpeg) {
  Bytes arithmetic = MakeJpeg({});
  arithmetic[FindSegment(arithmetic, kBaselineFrame) + 1] = kArithmeticFrame;
  EXPECT_FALSE(IsAccepted(arithmetic));
  Bytes twoComponents = MakeJpeg({});
  twoComponents[FindSegment(twoComponents, kBaselineFrame) + 9] = 2;
  EXPECT_FALSE(IsAccepted(twoComponents));

  Bytes fourComponents(tjBufSize(16, 16, TJSAMP_444));
  const Bytes ink(16 * 16 * 4, 100);
  unsigned char* data = fourComponents.data();
  unsigned long size = fourComponents.size();
  const tjhandle compressor = tjInitCompress();
  tjCompress2(compressor, ink.data(), 16, 0, 16, TJPF_CMYK, &data, &size, TJSAMP_444, 90,
              TJFLAG_NOREALLOC);
  tjDestroy(compressor);
  EXPECT_FALSE(IsAccepted(fourComponents));
}

TEST(LimitsTest, OutputSize) {
  TestDecoder decoder(NewTrack(), FourCC_I420, 32, 24);
  for (const auto& [width, height] : {std::pair<int64_t, int64_t>{-1, -1},
                                      {-64, 48},
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
      decoder.SetOutputFourCC(fourCC);
      ADD_FAILURE() << fourCC;
    } catch (const QELRuntimeError& error) {
      EXPECT_THAT(error.what(),
                  testing::HasSubstr("Y800, YUYV, YVYU, UYVY, YV12, YV16, I420, I422, "
                                     "BGR3, BGRA, RGB3, RGBA"));
    }
  }
  EXPECT_EQ(decoder.Decode(MakeJpeg({}))->GetFourCC(), FourCC_I420);
}

TEST(LimitsTest, ElementsAreSetUpBeforeTheFirstPush) {
  const TestDecoder registered(NewTrack());
  const auto newFilter = [] {
    return std::get<0>(
        ImplementElement<ElementFactoryType_VideoDecoder>("qel", "video.mjpeg", nullptr));
  };
  const SampleContainerConstPtr container = NewContainer(NewBuffer(MakeJpeg({})));
  const auto config = GetInitConfigPrototype(ElementFactoryType_VideoDecoder, "qel", "video.mjpeg")
                          ->CreateInstance();
  const MediaFilterPtr notConfigured = newFilter();
  notConfigured->DefineInput(CreateInfoContainer(NewTrack(), nullptr), "");
  EXPECT_THROW(notConfigured->PushSample(container), QELRuntimeError);
  notConfigured->SetInitConfig(config);
  EXPECT_NO_THROW(notConfigured->PushSample(container));

  const MediaFilterPtr notDefined = newFilter();
  EXPECT_THROW(notDefined->SetInitConfig(nullptr), QELRuntimeError);
  notDefined->SetInitConfig(config);
  EXPECT_EQ(notDefined->GetDefinedInput(""), nullptr);
  EXPECT_THROW(notDefined->PushSample(container), QELRuntimeError);
  const InfoContainerConstPtr input = CreateInfoContainer(NewTrack(), nullptr);
  notDefined->DefineInput(input, "");
  EXPECT_EQ(notDefined->GetDefinedInput(""), input);
  EXPECT_NO_THROW(notDefined->PushSample(container));
}

}  // namespace qel::mjpeg
