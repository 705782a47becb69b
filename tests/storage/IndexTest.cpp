#include "SourceFixture.h"
#include "SparseFile.h"
#include "elements/storage/JpegFields.h"
#include "elements/storage/MovHeader.h"
#include "elements/storage/ReadAheadCache.h"
#include "elements/storage/TrackIndex.h"

namespace Moravel::Test {
namespace {

using ::testing::HasSubstr;
using ::testing::Le;

Bytes8 Picture() {
  return MakeJpeg({.number = 1});
}

qel::TrackIndex IndexOf(const Bytes8& bytes) {
  SparseFile file;
  file.Put(0, bytes);
  return qel::ReadTrackIndex(file);
}

TEST(TrackIndex, OfManySamplesTakesFewReadsAndFewMoreBytesThanItHas) {
  const struct {
    const char* name;
    SparseTrackFile made;
  } cases[] = {{"AVI", MakeSparseAvi({}, Picture())},
               {"AVI of several segments", MakeSparseAvi({.segments = 4}, Picture())},
               {"MOV", MakeSparseMov({}, Picture())},
               {"MOV, index first", MakeSparseMov({.indexFirst = true}, Picture())}};
  for (auto [name, made] : cases) {
    SCOPED_TRACE(name);
    const auto index = qel::ReadTrackIndex(made.file);
    ASSERT_EQ(index.Count(), 20'000);
    EXPECT_EQ(index.At(19'999).size, 19'000u);
    EXPECT_EQ(index.At(4'999).offset - index.At(0).offset, 4'999 * 20'000);
    EXPECT_EQ(index.width, 64);
    EXPECT_THAT(made.file.reads, Le(10));
    EXPECT_THAT(made.file.bytesRead, Le(made.indexBytes * 12 / 10));
  }
}

TEST(TrackIndex, HasNoMoreEntriesAndBytesThanAllowed) {
  for (const int64_t more : {-1, 0, 1}) {
    auto mov = MakeSparseMov({.samples = qel::kMaxIndexEntries + more,
                              .stride = 1000,
                              .sampleSize = 1000,
                              .equalSizes = true},
                             Picture());
    qel::ReadAheadCache cache(mov.file);
    const std::string error = ErrorOf([&] { qel::ExtractMovHeader(cache); });
    EXPECT_EQ(error.empty(), more <= 0) << error;
    EXPECT_THAT(error, HasSubstr(more <= 0 ? "" : "announces 10000001 samples, at most 10000000"));
  }
  auto avi = MakeSparseAvi({.samples = 10}, Picture());
  const int64_t idx1 = avi.file.Size() - avi.indexBytes - 8;
  constexpr int64_t kTooLong = 17 * qel::kMaxIndexEntries;  // at 16 bytes an entry
  avi.file.Put(idx1, Writer(false).Text("idx1").U32({kTooLong}).bytes);
  avi.file.Put(idx1 + 8 + kTooLong, {0});
  EXPECT_THAT(ErrorOf([&] { qel::ReadTrackIndex(avi.file); }), HasSubstr("index is too long"));

  SparseFile longHeader(qel::kMaxIndexBytes);
  longHeader.Put(0, Writer(true).U32({qel::kMaxIndexBytes / 2 + 9}).Text("moov").bytes);
  EXPECT_THAT(ErrorOf([&] { qel::ReadTrackIndex(longHeader); }), HasSubstr("header takes"));
}

TEST(TrackIndex, FindsTimesExactly) {
  qel::TrackIndex constant;
  constant.sizes.resize(10'000'000);
  constant.timeRate = qel::EditRate(60000, 1001);
  qel::TrackIndex variable;
  variable.sizes.resize(3);
  variable.starts = {0, 10, 10, 30};
  variable.timeRate = qel::EditRate(1000, 1);
  const struct {
    const qel::TrackIndex& index;
    int64_t number;
    uint32_t numerator, denominator;
    std::optional<int64_t> found;
  } cases[] = {{constant, 9'999'999, 60000, 1001, 9'999'999},
               {constant, 10'000'000, 60000, 1001, std::nullopt},
               {constant, 4'999'999, 30000, 1001, 9'999'998},
               {constant, -1, 25, 1, std::nullopt},
               {constant, INT64_MAX, 1, UINT32_MAX, std::nullopt},
               {variable, 9, 1000, 1, 0},
               {variable, 10, 1000, 1, 2},
               {variable, 29'999, 1'000'000, 1, 2},
               {variable, 3, 100, 1, std::nullopt}};
  for (const auto& c : cases)
    EXPECT_EQ(c.index.Find({qel::EditRate(c.numerator, c.denominator), c.number, nullptr}), c.found)
        << c.number << " at " << c.numerator << "/" << c.denominator;
  for (const qel::EditRate rate : {qel::EditRate(0, 1), qel::EditRate(25, 0)})
    EXPECT_THROW(static_cast<void>(constant.Find({rate, 0, nullptr})), qel::QELRuntimeError);
}

TEST(TrackIndex, SaysWhatIsWrongWithAFile) {
  const TempFolder folder;
  const auto avi = ReadFile(MakeClip({.file = folder / "a"}).file);
  const auto mov = ReadFile(MakeClip({.file = folder / "m", .container = Container::Mov}).file);
  const auto first = [](const Bytes8& bytes, size_t size) {
    return Bytes8(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
  };
  Bytes8 otherCodec = mov;
  const std::string_view jpeg = "jpeg";
  for (auto at = otherCodec.begin();
       (at = std::search(at, otherCodec.end(), jpeg.begin(), jpeg.end())) != otherCodec.end();)
    std::copy_n("mjpb", 4, at);
  const struct {
    Bytes8 bytes;
    const char* error;
  } cases[] = {{{}, "neither AVI nor MOV"},
               {Bytes8(1000, 'x'), "neither AVI nor MOV"},
               {first(avi, avi.size() / 2), "no index"},
               {first(mov, mov.size() / 2), "no header"},
               {first(mov, mov.size() - 10), "truncated"},
               {otherCodec, "no motion-JPEG video stream (it has: mjpegb)"}};
  for (const auto& c : cases)
    EXPECT_THAT(ErrorOf([&] { IndexOf(c.bytes); }), HasSubstr(c.error));
}

TEST(JpegFields, SplitsAtTheSecondPictureOnly) {
  const Bytes8 picture = MakeJpeg({.number = 3, .avi1Polarity = 2});
  const auto facts = qel::ReadJpegFacts(picture);
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->height, 48);
  EXPECT_EQ(facts->polarity, qel::FieldPolarity::Even);
  EXPECT_EQ(qel::FindSecondPicture(picture), std::nullopt);
  for (const Bytes8& between :
       {Bytes8(), Bytes8(7, 0), Bytes8(5, 0xFF), Bytes8{0xFF, 0xE1, 0xFF, 0xFF, 1}}) {
    Writer both(false);
    both.Append(picture).Append(between).Append(picture);
    // Padding of 0xFF belongs to the marker that follows.
    EXPECT_EQ(qel::FindSecondPicture(both.bytes), picture.size() + between.size());
    // A picture inside a segment (a thumbnail) is none.
    Writer nested(false);
    nested.Append({0xFF, 0xD8, 0xFF, 0xE1, 0, 6, 0xFF, 0xD8, 0xFF, 0xD9}).Append(picture);
    EXPECT_EQ(qel::FindSecondPicture(nested.bytes), 10u);
  }
  for (size_t size = 0; size < picture.size(); ++size)
    EXPECT_EQ(qel::FindSecondPicture(std::span(picture).first(size)), std::nullopt);
}

}  // namespace
}  // namespace Moravel::Test
