#include <algorithm>

#include "mjpeg/MjpegTest.h"

namespace qel::mjpeg {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr uint8_t kFrame = 0xC0;
constexpr uint8_t kStartOfScan = 0xDA;
constexpr uint8_t kHuffmanTables = 0xC4;
constexpr uint8_t kQuantizationTables = 0xDB;

// The number that the test pictures carry, read from the picture's luma.
int NumberOf(const VideoSampleConstPtr& picture) {
  return Moravel::Test::ReadPictureNumber(picture->GetData()->GetInnerBuffer(), picture->GetWidth(),
                                          picture->GetWidth(), picture->GetHeight());
}

Bytes CutTo(Bytes bytes, size_t size) {
  bytes.resize(size);
  return bytes;
}

}  // namespace

TEST(DamageTest, DamagedPicturesAreShownWithOneWarning) {
  const Bytes whole = MakeJpeg({.width = 640, .height = 480, .number = 7});
  const size_t middle = (FindSegment(whole, kStartOfScan) + whole.size()) / 2;
  Bytes zeroed = whole;
  std::fill_n(zeroed.begin() + ptrdiff_t(middle), 40, uint8_t{0});
  Bytes marked = whole;
  marked[middle] = 0xFF;
  marked[middle + 1] = 0xD9;
  const Bytes progressive = MakeProgressive(whole);
  for (const Bytes& damaged : {zeroed, marked, CutTo(whole, middle), CutTo(whole, whole.size() - 2),
                               CutTo(progressive, progressive.size() * 3 / 4)}) {
    TestDecoder decoder(NewTrack());
    const WarningLog log;
    const VideoSampleConstPtr picture = decoder.Decode(damaged);
    EXPECT_EQ(picture->GetData()->GetDataSize(), 640u * 480 * 3 / 2);
    EXPECT_THAT(log.Lines(), ElementsAre(HasSubstr("damaged")));
    EXPECT_EQ(NumberOf(decoder.Decode(whole)), 7);
    EXPECT_EQ(log.Lines().size(), 1u);
  }
}

TEST(DamageTest, WhatCanNotBeDecodedThrowsAndLeavesNothingBehind) {
  const Bytes first = MakeJpeg({.number = 1});
  const Bytes second = MakeJpeg({.number = 2});
  const Bytes progressive = MakeProgressive(second);
  // Damage first and then an error: there is no picture, although TurboJPEG calls it a warning.
  Bytes warnedAndBroken = progressive;
  const size_t afterScan = [&] {
    size_t at = FindSegment(progressive, kStartOfScan) + 14;
    while (progressive[at] != 0xFF || progressive[at + 1] == 0)
      ++at;
    return at;
  }();
  Bytes broken(40, 0x12);
  broken.insert(broken.end(), {0xFF, kStartOfScan, 0, 3, 9});
  warnedAndBroken.insert(warnedAndBroken.begin() + ptrdiff_t(afterScan), broken.begin(),
                         broken.end());
  Bytes warnedAndUnknown = second;  // foreign bytes, then a subsampling of 3:1
  const size_t frame = FindSegment(second, kFrame);
  warnedAndUnknown[frame + 11] = 0x31;
  warnedAndUnknown.insert(warnedAndUnknown.begin() + ptrdiff_t(frame), {1, 2, 3});
  const Bytes garbage(1000, 0x55);
  const Bytes tablesOnly = [&] {
    Bytes bytes = CutTo(second, FindSegment(second, kFrame));
    bytes.insert(bytes.end(), {0xFF, 0xD9});
    return bytes;
  }();
  TestDecoder decoder(NewTrack());
  for (const Bytes& bytes :
       {Bytes(), Bytes{0xFF}, garbage, tablesOnly, warnedAndUnknown, CutTo(second, 100),
        warnedAndBroken, CutTo(second, FindSegment(second, kStartOfScan) + 1),
        WithoutSegments(second, kQuantizationTables)}) {
    decoder.filter_->PushSample(NewContainer(NewBuffer(first)));
    EXPECT_THROW(decoder.filter_->PushSample(NewContainer(NewBuffer(bytes))), QELRuntimeError);
    EXPECT_EQ(decoder.filter_->GetSample(), nullptr);
    EXPECT_EQ(NumberOf(decoder.Decode(second)), 2);
  }
}

TEST(DamageTest, PicturesWithoutHuffmanTablesMeanTheDefaultOnes) {
  const Bytes whole = MakeJpeg({.number = 3});
  const Bytes bare = WithoutSegments(whole, kHuffmanTables);
  TestDecoder decoder(NewTrack());
  const WarningLog log;
  const Bytes expected = BytesOf(decoder.Decode(whole));
  EXPECT_EQ(BytesOf(decoder.Decode(bare)), expected);
  decoder.Decode(MakeProgressive(whole));  // brings tables of its own
  EXPECT_EQ(BytesOf(decoder.Decode(bare)), expected);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(DamageTest, WhatFollowsThePictureIsLeftAlone) {
  const Bytes first = MakeJpeg({.number = 4, .avi1Polarity = 1});
  const Bytes second = MakeJpeg({.number = 5, .avi1Polarity = 2});
  TestDecoder decoder(NewTrack());
  const WarningLog log;
  for (const Bytes& tail : {second, Bytes(100, 0), Bytes(100, 0xFF)}) {
    Bytes both = first;
    both.insert(both.end(), tail.begin(), tail.end());
    EXPECT_EQ(NumberOf(decoder.Decode(both)), 4);
  }
  EXPECT_THAT(log.Lines(), IsEmpty());
}

TEST(DamageTest, OnePushGivesOnePicture) {
  TestDecoder decoder(NewTrack());
  EXPECT_EQ(decoder.filter_->GetSample(), nullptr);
  decoder.filter_->PushSample(NewContainer(NewBuffer(MakeJpeg({.number = 1}))));
  EXPECT_EQ(NumberOf(decoder.Decode(MakeJpeg({.number = 2}))), 2);
  EXPECT_EQ(decoder.filter_->GetSample(), nullptr);

  const SampleConstPtr sample =
      NewContainer(NewBuffer(MakeJpeg({.number = 3})))->GetAllSamples().front();
  decoder.filter_->PushSample(NewContainer(sample->GetData()));
  for (const SampleContainerConstPtr& container :
       {SampleContainerConstPtr(), CreateSampleContainer(SampleList{}, {}),
        CreateSampleContainer(SampleList{nullptr}, {}), NewContainer(nullptr),
        CreateSampleContainer(SampleList{sample, sample}, {})}) {
    EXPECT_THROW(decoder.filter_->PushSample(container), QELRuntimeError);
    EXPECT_EQ(decoder.filter_->GetSample(), nullptr);
  }
}

}  // namespace qel::mjpeg
