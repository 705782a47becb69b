#include <algorithm>

#include "mjpeg/MjpegTest.h"

namespace qel::mjpeg {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Bytes CutTo(Bytes bytes, size_t size) {
  bytes.resize(size);
  return bytes;
}

Bytes Insert(Bytes bytes, size_t at, const Bytes& more) {
  bytes.insert(bytes.begin() + ptrdiff_t(at), more.begin(), more.end());
  return bytes;
}

TEST(DamageTest, DamagedPicturesAreShownWithOneWarning) {
  const Bytes whole = MakeJpeg({.width = 640, .height = 480, .number = 7});
  const size_t middle = (FindSegment(whole, kStartOfScan) + whole.size()) / 2;
  Bytes zeroed = whole;
  std::fill_n(zeroed.begin() + ptrdiff_t(middle), 40, uint8_t{0});
  const Bytes progressive = MakeProgressive(whole);
  for (const Bytes& damaged :
       {zeroed, Insert(whole, middle, {0xFF, 0xD9}), CutTo(whole, middle),
        CutTo(whole, whole.size() - 2), CutTo(progressive, progressive.size() * 3 / 4)}) {
    TestDecoder decoder(NewTrack());
    WarningLog log;
    EXPECT_EQ(decoder.Decode(damaged)->GetData()->GetDataSize(), 640u * 480 * 3 / 2);
    EXPECT_THAT(log.lines_, ElementsAre(HasSubstr("damaged")));
    EXPECT_EQ(NumberOf(decoder.Decode(whole)), 7);
    EXPECT_EQ(log.lines_.size(), 1u);
  }
}

TEST(DamageTest, WhatCanNotBeDecodedThrowsAndLeavesNothingBehind) {
  const Bytes first = MakeJpeg({.number = 1}), second = MakeJpeg({.number = 2});
  const size_t frame = FindSegment(second, kBaselineFrame);
  // Damage first and then an error: there is no picture, although TurboJPEG calls it a warning.
  const Bytes progressive = MakeProgressive(second);
  size_t afterScan = FindSegment(progressive, kStartOfScan) + 14;
  while (progressive[afterScan] != 0xFF || progressive[afterScan + 1] == 0)
    ++afterScan;
  const Bytes broken = Insert(Bytes(40, 0x12), 40, {0xFF, kStartOfScan, 0, 3, 9});
  Bytes unknown = second;  // a subsampling of 3:1
  unknown[frame + 11] = 0x31;
  TestDecoder decoder(NewTrack());
  for (const Bytes& bytes :
       {Bytes(), Bytes{0xFF}, Bytes(1000, 0x55), Insert(CutTo(second, frame), frame, {0xFF, 0xD9}),
        Insert(unknown, frame, {1, 2, 3}), CutTo(second, 100),
        Insert(progressive, afterScan, broken),
        CutTo(second, FindSegment(second, kStartOfScan) + 1),
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
  WarningLog log;
  const Bytes expected = BytesOf(decoder.Decode(whole));
  EXPECT_EQ(BytesOf(decoder.Decode(bare)), expected);
  decoder.Decode(MakeProgressive(whole));  // brings tables of its own
  EXPECT_EQ(BytesOf(decoder.Decode(bare)), expected);
  EXPECT_THAT(log.lines_, IsEmpty());
}

TEST(DamageTest, WhatFollowsThePictureIsLeftAlone) {
  const Bytes first = MakeJpeg({.number = 4, .avi1Polarity = 1});
  TestDecoder decoder(NewTrack());
  WarningLog log;
  for (const Bytes& tail :
       {MakeJpeg({.number = 5, .avi1Polarity = 2}), Bytes(100, 0), Bytes(100, 0xFF)})
    EXPECT_EQ(NumberOf(decoder.Decode(Insert(first, first.size(), tail))), 4);
  EXPECT_THAT(log.lines_, IsEmpty());
}

TEST(DamageTest, OnePushGivesOnePicture) {
  TestDecoder decoder(NewTrack());
  const SampleContainerConstPtr one = NewContainer(NewBuffer(MakeJpeg({.number = 1})));
  const SampleConstPtr sample = one->GetAllSamples().front();
  EXPECT_EQ(decoder.filter_->GetSample(), nullptr);
  decoder.filter_->PushSample(one);
  EXPECT_EQ(NumberOf(decoder.Decode(MakeJpeg({.number = 2}))), 2);
  EXPECT_EQ(decoder.filter_->GetSample(), nullptr);
  for (const SampleContainerConstPtr& container :
       {SampleContainerConstPtr(), CreateSampleContainer(SampleList{}, {}),
        CreateSampleContainer(SampleList{nullptr}, {}), NewContainer(nullptr),
        CreateSampleContainer(SampleList{sample, sample}, {})}) {
    decoder.filter_->PushSample(one);
    EXPECT_THROW(decoder.filter_->PushSample(container), QELRuntimeError);
    EXPECT_EQ(decoder.filter_->GetSample(), nullptr);
  }
}

}  // namespace qel::mjpeg
