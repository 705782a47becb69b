#include "SourceFixture.h"
#include "elements/storage/JpegFields.h"
#include "elements/storage/TrackIndex.h"

namespace Moravel::Test {
namespace {

using ::testing::HasSubstr;
using ::testing::Le;
using Bytes8 = std::vector<uint8_t>;

// Counts what is read of a file.
struct CountedFile : qel::IFileBytes {
  explicit CountedFile(const std::filesystem::path& file)
      : in(file, std::ios::binary), size(static_cast<int64_t>(std::filesystem::file_size(file))) {}
  int64_t Size() const override { return size; }
  void ReadAll(std::span<const qel::FilePart> parts) override {
    for (const auto& [offset, bytes] : parts) {
      ++reads;
      bytesRead += static_cast<int64_t>(bytes.size());
      in.seekg(offset);
      in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    }
  }
  qel::ReadCost Cost() const override { return {reads, bytesRead}; }

  std::ifstream in;
  const int64_t size;
  int64_t reads = 0, bytesRead = 0;
};

class TrackIndex : public ::testing::Test {
 protected:
  // A file of these bytes, and zeros behind them.
  CountedFile File(const Bytes8& bytes, int64_t size = 0) {
    WriteFile(folder / "file", bytes);
    if (size != 0)
      std::filesystem::resize_file(folder / "file", static_cast<uintmax_t>(size));
    return CountedFile(folder / "file");
  }

  const TempFolder folder;
};

TEST_F(TrackIndex, OfManySamplesTakesFewReadsAndFewMoreBytesThanItHas) {
  const ClipSpec many = {.file = folder / "a", .width = 16, .height = 16, .pictures = 20'000};
  ClipSpec segments = many, mov = many, headerFirst = many;
  segments.pictures = 40;
  segments.padding = 32 << 20;  // one and a quarter GiB: an AVI segment is at most one
  mov.container = headerFirst.container = Container::Mov;
  headerFirst.headerFirst = true;
  for (const ClipSpec& spec : {many, segments, mov, headerFirst}) {
    const Clip clip = MakeClip(spec);
    CountedFile file(clip.file);
    const auto index = qel::ReadTrackIndex(file);
    EXPECT_THAT(file.reads, Le(10));
    EXPECT_THAT(file.bytesRead, Le(spec.pictures * 19 + 80'000));
    ASSERT_EQ(index.Count(), spec.pictures);
    for (const int64_t number : {0, spec.pictures / 2, spec.pictures - 1}) {
      Bytes8 sample(clip.samples[static_cast<size_t>(number)].size());
      EXPECT_EQ(index.At(number).size, static_cast<int64_t>(sample.size()) + spec.padding);
      file.ReadAt(index.At(number).offset, sample);
      EXPECT_EQ(sample, clip.samples[static_cast<size_t>(number)]) << number;
    }
  }
}

TEST_F(TrackIndex, HasNoMoreEntriesAndBytesThanAllowed) {
  const auto mov =
      ReadFile(MakeClip({.file = folder / "m", .container = Container::Mov, .pictures = 1}).file);
  for (const auto low : Bytes8{0x7F, 0x80, 0x81}) {  // ten millions, one less and one more
    auto file = File(Patched(mov, "stsz", 8, {0, 0, 4, 0, 0, 0x98, 0x96, low}));
    EXPECT_THAT(ErrorOf([&] {  // what is only announced takes no memory
                  EXPECT_THAT(qel::ReadTrackIndex(file).MemoryBytes(), Le(4096));
                }),
                Says(low <= 0x80 ? "" : "announces 10000001 samples"));
  }
  auto longHeader = File({0x0C, 0, 0, 9, 'm', 'o', 'o', 'v'}, qel::kMaxIndexBytes);
  EXPECT_THAT(ErrorOf([&] { qel::ReadTrackIndex(longHeader); }), HasSubstr("header takes"));
}

TEST_F(TrackIndex, FindsTimesExactly) {
  qel::ContainerTrack track;
  track.timeUnits = 60000;
  track.timeUnitsPer = 1001;
  track.times.Add(10'000'000, 1);
  const qel::TrackIndex constant(track);
  track.timeUnits = 1000;
  track.timeUnitsPer = 1;
  track.times = {};
  for (const int64_t duration : {10, 0, 20})
    track.times.Add(1, duration);
  const qel::TrackIndex variable(track);
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
}

TEST_F(TrackIndex, SaysWhatIsWrongWithAFile) {
  const auto avi = ReadFile(MakeClip({.file = folder / "a"}).file);
  const auto mov = ReadFile(MakeClip({.file = folder / "m", .container = Container::Mov}).file);
  const auto first = [](const Bytes8& bytes, size_t size) {
    return Bytes8(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size));
  };
  const std::pair<Bytes8, const char*> cases[] = {
      {{}, "neither AVI nor MOV"},
      {Bytes8(1000, 'x'), "neither AVI nor MOV"},
      {{0x1A, 0x45, 0xDF, 0xA3, 0x9F}, "Matroska or WebM file: \"ffmpeg -i FILE -c copy OUT.mov\""},
      {MakeJpeg({}), "raw motion JPEG or a JPEG picture: \"ffmpeg -framerate 25 -f mjpeg"},
      {Patched(mov, "trak", 0, {'c', 'm', 'o', 'v'}), "the header is compressed"},
      {first(avi, avi.size() / 2), "no index"},
      {first(mov, mov.size() / 2), "no header"},
      {first(mov, mov.size() - 10), "box at byte"},
      {Patched(mov, "stsz", 12, {0, 1}), "damaged"},
      {Patched(mov, "jpeg", 0, {'m', 'j', 'p', 'b'}), "no motion-JPEG video stream (it has: "}};
  for (const auto& [bytes, error] : cases) {
    auto file = File(bytes);
    EXPECT_THAT(ErrorOf([&] { qel::ReadTrackIndex(file); }), HasSubstr(error));
  }
}

struct Corner {
  Bytes8 bytes;
  int64_t count;
  const char* problem = "";
  qel::FieldOrder fieldOrder = qel::FieldOrder::Progressive;
  int height = 48;
};

TEST_F(TrackIndex, TakesWhatThereIsAndTellsWhatIsNot) {
  using enum qel::FieldOrder;
  const auto make = [this](ClipSpec spec) {
    spec.file = folder / "clip";
    return ReadFile(MakeClip(spec).file);
  };
  const auto avi = make({});
  const auto mov = make({.container = Container::Mov});
  auto early = make({.container = Container::Mov, .headerFirst = true});
  early.resize(early.size() - 1000);
  const auto fields = make({.interlaced = true});
  const auto each = make({.container = Container::Mov, .interlaced = true, .fieldEach = true});
  // The same with offsets from the start of the file.
  Bytes8 absolute = avi;
  const std::string_view movi = "movi", idx1 = "idx1";
  const auto at = std::search(avi.begin(), avi.end(), movi.begin(), movi.end()) - avi.begin();
  const auto entries = std::search(absolute.begin(), absolute.end(), idx1.begin(), idx1.end()) + 8;
  for (int i = 0; i < 10; ++i) {
    uint32_t offset = 0;
    std::memcpy(&offset, &entries[16 * i + 8], 4);
    offset += static_cast<uint32_t>(at);
    std::memcpy(&entries[16 * i + 8], &offset, 4);
  }
  const Corner corners[] = {
      {avi, 10},
      {absolute, 10},
      {Patched(avi, "idx1", 4, {64}), 4, "announces 10 pictures, the index has 4"},
      {Patched(avi, "LIST", 0, {'J', 'U', 'N', 'K'}), 0},
      {mov, 10},
      {Patched(mov, "stsc", 19, {4}), 4, "announces 10 pictures, the index has 4"},
      {early, 10, "samples lie behind its end"},
      {make({.container = Container::Mov, .options = "movflags=frag_keyframe"}), 10},
      {Patched(mov, "elst", 16, {0, 0, 8, 0}), 6},   // from four of 512 units on
      {Patched(mov, "elst", 12, {0, 0, 0, 80}), 2},  // of a thousandth of a second
      {fields, 10, "", TopFirst, 24},
      {Patched(fields, "AVI1", -6, Bytes8(200)), 10, "", TopFirst, 24},
      {Patched(fields, "\x11\x08", 3, {23}), 10, "", TopFirst, 24},  // a frame of 47 rows
      {each, 10, "", TopFirst, 24},
      {Patched(each, "jpeg", 30, {24}), 20, "", Progressive, 24},  // the height in the header
  };
  for (const Corner& corner : corners) {
    SCOPED_TRACE(&corner - corners);
    auto file = File(corner.bytes);
    if (corner.count == 0) {
      EXPECT_THAT(ErrorOf([&] { qel::ReadTrackIndex(file); }), HasSubstr("no header"));
      continue;
    }
    const qel::TrackIndex index = qel::ReadTrackIndex(file);
    EXPECT_EQ(index.Count(), corner.count);
    EXPECT_EQ(index.Facts().fieldOrder, corner.fieldOrder);
    EXPECT_EQ(index.Facts().height, corner.height);
    EXPECT_EQ(index.Facts().problems.size(), std::string_view(corner.problem).empty() ? 0 : 1);
    for (const auto& problem : index.Facts().problems)
      EXPECT_THAT(problem, HasSubstr(corner.problem));
    for (int64_t n = 0; n < index.Count() && index.At(n).offset + 2 < file.Size(); ++n) {
      Bytes8 start(2);
      file.ReadAt(index.At(n).offset, start);
      if (start != Bytes8{0, 0}) {  // the damaged one
        EXPECT_EQ(start, (Bytes8{0xFF, 0xD8})) << n;
      }
    }
  }
}

TEST(JpegFields, SplitsAtTheSecondPictureOnly) {
  const Bytes8 picture = MakeJpeg({.number = 3, .avi1Polarity = 2});
  const auto join = [](const Bytes8& before, const Bytes8& between, const Bytes8& behind) {
    Bytes8 all = before;
    all.insert(all.end(), between.begin(), between.end());
    all.insert(all.end(), behind.begin(), behind.end());
    return all;
  };
  // Padding of 0xFF belongs to the marker that follows.
  for (const Bytes8& between :
       {Bytes8(), Bytes8(7, 0), Bytes8(5, 0xFF), Bytes8{0xFF, 0xE1, 0xFF, 0xFF, 1}})
    EXPECT_EQ(qel::FindSecondPicture(join(picture, between, picture)),
              picture.size() + between.size());
  // A picture inside a segment (a thumbnail) is none.
  EXPECT_EQ(qel::FindSecondPicture(
                join({0xFF, 0xD8, 0xFF, 0xE1, 0, 6, 0xFF, 0xD8}, {0xFF, 0xD9}, picture)),
            10u);
  for (size_t size = 0; size <= picture.size(); ++size)
    EXPECT_EQ(qel::FindSecondPicture(std::span(picture).first(size)), std::nullopt);
}

}  // namespace
}  // namespace Moravel::Test
