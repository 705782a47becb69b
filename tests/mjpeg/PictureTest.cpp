#include <algorithm>

#include "elements/mjpeg/JpegPicture.h"
#include "elements/mjpeg/PictureMemory.h"
#include "mjpeg/MjpegTest.h"
#include "support/MemoryInUse.h"

namespace qel::mjpeg {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr uint8_t kBaselineFrame = 0xC0, kProgressiveFrame = 0xC2, kHuffmanTables = 0xC4,
                  kArithmeticFrame = 0xC9, kStartOfScan = 0xDA, kQuantizationTables = 0xDB;

// The same picture coded progressively, with Huffman tables of its own.
Bytes MakeProgressive(const Bytes& jpeg) {
  const std::unique_ptr<void, decltype(&tjDestroy)> handle(tjInitTransform(), &tjDestroy);
  tjtransform transform = {};
  transform.options = TJXOPT_PROGRESSIVE;
  unsigned char* data = nullptr;
  unsigned long size = 0;
  tjTransform(handle.get(), jpeg.data(), jpeg.size(), 1, &data, &size, &transform, 0);
  const Bytes progressive(data, data + size);
  tjFree(data);
  return progressive;
}

size_t SegmentBytes(const Bytes& jpeg, size_t at) {
  return 2 + (size_t{jpeg.at(at + 2)} << 8 | jpeg.at(at + 3));
}

// Where the first segment of that marker begins; the start of scan when there is none before it.
size_t FindSegment(const Bytes& jpeg, uint8_t marker) {
  size_t at = 2;
  while (jpeg.at(at + 1) != marker && jpeg.at(at + 1) != kStartOfScan)
    at += SegmentBytes(jpeg, at);
  return at;
}

Bytes WithoutSegments(Bytes jpeg, uint8_t marker) {
  for (size_t at = 0; jpeg.at((at = FindSegment(jpeg, marker)) + 1) == marker;) {
    const auto begin = jpeg.begin() + ptrdiff_t(at);
    jpeg.erase(begin, begin + ptrdiff_t(SegmentBytes(jpeg, at)));
  }
  return jpeg;
}

Bytes CutTo(Bytes bytes, size_t size) {
  bytes.resize(size);
  return bytes;
}

Bytes Insert(Bytes bytes, size_t at, const Bytes& more) {
  bytes.insert(bytes.begin() + ptrdiff_t(at), more.begin(), more.end());
  return bytes;
}

// With other bytes behind the first segment's marker.
Bytes Patched(Bytes jpeg, uint8_t marker, size_t distance, const Bytes& with) {
  std::copy(with.begin(), with.end(),
            jpeg.begin() + ptrdiff_t(FindSegment(jpeg, marker) + distance));
  return jpeg;
}

Bytes Resized(const Bytes& jpeg, uint8_t frame, int width, int height) {
  return Patched(jpeg, frame, 5,
                 {uint8_t(height >> 8), uint8_t(height), uint8_t(width >> 8), uint8_t(width)});
}

// Whether the bytes are taken as a motion-JPEG picture.
bool IsAccepted(const Bytes& jpeg) {
  try {
    JpegPicture picture(jpeg);
    return true;
  } catch (const QELRuntimeError&) {
    return false;
  }
}

TEST(PictureTest, DamagedOnesAreShownWithOneWarning) {
  const Bytes whole = MakeJpeg({.width = 640, .height = 480, .number = 7});
  const size_t middle = (FindSegment(whole, kStartOfScan) + whole.size()) / 2;
  Bytes zeroed = whole;
  std::fill_n(zeroed.begin() + ptrdiff_t(middle), 40, uint8_t{0});
  const Bytes progressive = MakeProgressive(whole);
  for (const Bytes& damaged :
       {zeroed, Insert(whole, middle, {0xFF, 0xD9}), CutTo(whole, middle),
        CutTo(whole, whole.size() - 2), CutTo(progressive, progressive.size() * 3 / 4)}) {
    TestDecoder decoder;
    WarningLog log;
    EXPECT_EQ(decoder.Decode(damaged)->GetData()->GetDataSize(), 640u * 480 * 3 / 2);
    EXPECT_THAT(log.lines_, ElementsAre(HasSubstr("damaged")));
    EXPECT_EQ(NumberOf(decoder.Decode(whole)), 7);
    EXPECT_EQ(log.lines_.size(), 1u);
  }
}

TEST(PictureTest, OnesThatCanNotBeDecodedThrowAndLeaveNothingBehind) {
  const Bytes first = MakeJpeg({.number = 1}), second = MakeJpeg({.number = 2});
  const size_t frame = FindSegment(second, kBaselineFrame);
  // Damage first and then an error: there is no picture, although TurboJPEG calls it a warning.
  const Bytes progressive = MakeProgressive(second);
  size_t afterScan = FindSegment(progressive, kStartOfScan) + 14;
  while (progressive[afterScan] != 0xFF || progressive[afterScan + 1] == 0)
    ++afterScan;
  TestDecoder decoder;
  const auto expectThrow = [&](const SampleContainerConstPtr& container) {
    decoder.Push(NewBuffer(first));
    EXPECT_THROW(decoder.filter->PushSample(container), QELRuntimeError);
    EXPECT_EQ(decoder.filter->GetSample(), nullptr);
    EXPECT_EQ(NumberOf(decoder.Decode(second)), 2);
    EXPECT_EQ(decoder.filter->GetSample(), nullptr);
  };
  const auto sample = [](BufferConstPtr data) {
    return CreateSample(NewTrack(), CreateChannelInfo(0), std::move(data));
  };
  for (const Bytes& bytes :
       {Bytes(), Bytes{0xFF}, Bytes(1000, 0x55), Insert(CutTo(second, frame), frame, {0xFF, 0xD9}),
        Patched(second, kBaselineFrame, 11, {0x31}),  // a subsampling of 3:1
        CutTo(second, 100), CutTo(second, FindSegment(second, kStartOfScan) + 1),
        Insert(progressive, afterScan, Insert(Bytes(40, 0x12), 40, {0xFF, kStartOfScan, 0, 3, 9})),
        WithoutSegments(second, kQuantizationTables)})
    expectThrow(CreateSampleContainer(sample(NewBuffer(bytes)), nullptr));
  const SampleConstPtr good = sample(NewBuffer(first));
  for (const SampleList& samples : {SampleList{}, {nullptr}, {sample(nullptr)}, {good, good}})
    expectThrow(CreateSampleContainer(samples, {}));
}

TEST(PictureTest, MayHaveNoTablesAndAnythingAround) {
  const Bytes whole = MakeJpeg({.number = 3});
  const Bytes bare = WithoutSegments(whole, kHuffmanTables);
  TestDecoder decoder;
  WarningLog log;
  decoder.Decode(MakeProgressive(whole));  // brings tables of its own
  EXPECT_EQ(BytesOf(decoder.Decode(bare)), BytesOf(decoder.Decode(whole)));
  for (const Bytes& tail : {MakeJpeg({.number = 5}), Bytes(100, 0), Bytes(100, 0xFF)})
    EXPECT_EQ(NumberOf(decoder.Decode(Insert(whole, whole.size(), tail))), 3);
  for (const Bytes& front :
       {Bytes{0xFF, 0xD9}, Bytes(100, 0), Bytes(3, 0xFF), Bytes{0xFF, 0xE1, 9}})
    EXPECT_EQ(NumberOf(decoder.Decode(Insert(whole, 0, front))), 3);
  EXPECT_THAT(log.lines_, IsEmpty());
}

TEST(PictureTest, Limits) {
  const Bytes jpeg = MakeJpeg({}), progressive = MakeProgressive(jpeg);
  const struct {
    int width, height;
    bool accepted;
  } sizes[] = {{kMaxPictureSide, 4320, true},  {16, kMaxPictureSide, true},
               {kMaxPictureSide, 4321, false}, {kMaxPictureSide + 1, 16, false},
               {0xFFFF, 0xFFFF, false},        {0, 16, false}};
  for (const auto& size : sizes)
    EXPECT_EQ(IsAccepted(Resized(jpeg, kBaselineFrame, size.width, size.height)), size.accepted);
  for (const auto& [bytes, limit] :
       {std::pair(jpeg, kMaxCompressedBytes), {progressive, kMaxScannedBytes}}) {
    EXPECT_TRUE(IsAccepted(CutTo(bytes, limit)));
    EXPECT_FALSE(IsAccepted(CutTo(bytes, limit + 1)));
  }
  constexpr int kHeight = 4096;
  int scans = 0;
  for (size_t i = 1; i < progressive.size(); ++i)
    scans += progressive[i - 1] == 0xFF && progressive[i] == kStartOfScan;
  const int widest = int(kMaxScannedPixels / kHeight / scans);
  EXPECT_TRUE(IsAccepted(Resized(progressive, kProgressiveFrame, widest, kHeight)));
  EXPECT_FALSE(IsAccepted(Resized(progressive, kProgressiveFrame, widest + 1, kHeight)));
  EXPECT_FALSE(IsAccepted(Patched(jpeg, kBaselineFrame, 1, {kArithmeticFrame})));
  EXPECT_FALSE(IsAccepted(Patched(jpeg, kBaselineFrame, 9, {2}))) << "two components";

  TestDecoder decoder(NewTrack(), FourCC_I420, 32, 24);
  for (const auto& [width, height] : std::vector<std::pair<int64_t, int64_t>>{
           {-1, -1}, {64, 0}, {kMaxPictureSide + 1, 1}, {int64_t{1} << 32, int64_t{1} << 32}})
    EXPECT_THROW(decoder.SetOutputSize(width, height), QELRuntimeError) << width << "x" << height;
  EXPECT_THROW(decoder.SetFormat(FourCC_V210), QELRuntimeError);
  EXPECT_EQ(decoder.Decode(jpeg)->GetWidth(), 32);  // the last size that was accepted
}

TEST(PictureTest, MemoryIsUsedAgainUpToALimit) {
  const int64_t before = MemoryInUse();
  constexpr size_t kBytes = kMaxIdlePictureMemory / 4 - 1;
  const auto first = TakePictureMemory(kBytes).get();
  EXPECT_EQ(TakePictureMemory(kBytes).get(), first);
  std::vector<std::shared_ptr<uint8_t[]>> held(10);
  for (auto& memory : held)
    memory = TakePictureMemory(kBytes);
  held.clear();
  EXPECT_LE(MemoryInUse() - before, int64_t(kMaxIdlePictureMemory) + 100'000);
}

}  // namespace qel::mjpeg
