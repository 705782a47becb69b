#include <algorithm>
#include <chrono>
#include <map>
#include <numeric>
#include <random>
#include <thread>

#include "SourceFixture.h"
#include "elements/storage/StorageSource.h"
#include "elements/storage/TrackInfo.h"
#include "support/MemoryInUse.h"

namespace Moravel::Test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Le;
using Bytes8 = std::vector<uint8_t>;

struct Variant {
  Container container;
  bool bottomFirst = false;
  std::vector<int> channels = {0};  // in stored order
  bool fieldEach = false;
};

const Variant kVariants[] = {{Container::Avi},
                             {Container::Mov},
                             {Container::Avi, false, {0, 1}},
                             {Container::Avi, true, {1, 0}},
                             {Container::Mov, false, {0, 1}},
                             {Container::Mov, true, {1, 0}},
                             {Container::Avi, true, {1, 0}, true},
                             {Container::Mov, false, {0, 1}, true}};

void ExpectSample(SourceUnderTest& source, const Clip& clip, const Variant& variant,
                  size_t number) {
  const auto position = static_cast<int64_t>(number);
  EXPECT_EQ(source.Goto(position, 30000, 1001).GetTimeNumber(), position);
  const auto container = source.media->GetSample();
  ASSERT_EQ(AllBytes(container), clip.samples[number]) << number;
  const auto& limits = container->GetTimeInfo("StorageTimePoint");
  EXPECT_EQ(limits.GetStartTime().GetTimeNumber(), position);
  EXPECT_EQ(limits.GetStartTime().GetEditRate(), qel::EditRate(30000, 1001));
  EXPECT_EQ(limits.GetDurationNumber(), 1);
  std::vector<int> channels;
  for (const auto& sample : container->GetAllSamples()) {
    channels.push_back(sample->GetChannelInfo()->GetChannels().at(0));
    EXPECT_EQ(Bytes(sample).at(1), 0xD8);
  }
  EXPECT_EQ(channels, variant.channels);
}

TEST(StorageSource, DeliversWhatWasMuxedInAnyOrder) {
  const TempFolder folder;
  std::vector<size_t> order(40);
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), std::mt19937(1));
  for (const std::string& socket : {std::string(), (folder / "socket").string()}) {
    Player::StorageServer server({.unixDomainSocket = socket});
    SourceUnderTest source;
    for (int64_t track = 7; const Variant& variant : kVariants) {
      SCOPED_TRACE(++track);
      const bool isInterlaced = variant.channels.size() == 2;
      const Clip clip = MakeClip({.file = folder / std::to_string(track),
                                  .container = variant.container,
                                  .pictures = 40,
                                  .rateNumerator = 30000,
                                  .rateDenominator = 1001,
                                  .interlaced = isInterlaced,
                                  .bottomFirst = variant.bottomFirst,
                                  .fieldEach = variant.fieldEach});
      server.AddTrack(track, clip.file);
      source.Init(server.Port(), track, socket);
      const auto infos = source.media->GetDefinedOutput("")->GetVideoInfoList();
      ASSERT_EQ(infos.size(), variant.channels.size());
      EXPECT_EQ(infos[0]->GetHeight(), isInterlaced ? 24 : 48);
      EXPECT_EQ(infos[0]->GetSampleCount(), 40);
      EXPECT_EQ(infos[0]->GetEditRate(), qel::EditRate(30000, 1001));
      for (const size_t number : order)
        ExpectSample(source, clip, variant, number);
      source.Goto(0);
      for (const auto& expected : clip.samples)
        ASSERT_EQ(AllBytes(source.media->GetSample()), expected);
      EXPECT_EQ(source.media->GetSample(), nullptr);
    }
  }
}

// Of samples, with their chunk headers.
uint64_t BytesOf(const Clip& clip, const std::vector<int64_t>& numbers) {
  uint64_t bytes = 0;
  for (const int64_t number : numbers)
    bytes += clip.samples[static_cast<size_t>(number)].size() + 8;
  return bytes;
}

class Served : public ::testing::Test {
 protected:
  // The clip as track 1, of a source that is set to it.
  Clip Serve(ClipSpec spec) {
    spec.file = folder / "a";
    const Clip clip = MakeClip(spec);
    server.AddTrack(1, clip.file);
    source.Init(server.Port());
    return clip;
  }

  const TempFolder folder;
  Player::StorageServer server{{}};
  SourceUnderTest source;
};

TEST_F(Served, TakesOneRequestForARandomSampleAndFewForASequence) {
  const Clip clip = Serve({.pictures = 200});
  server.AddTrack(2, clip.file);
  EXPECT_THAT(server.RequestCount(), Le(10u));

  const uint64_t requests = server.RequestCount();
  const uint64_t bytes = server.BytesRequested();
  for (const int64_t number : {100, 50, 3, 199})
    EXPECT_EQ(AllBytes(source.Read(number)), clip.samples[static_cast<size_t>(number)]);
  EXPECT_EQ(server.RequestCount() - requests, 4u);
  EXPECT_THAT(server.BytesRequested() - bytes, Le(BytesOf(clip, {100, 50, 3, 199})));

  // Two tracks in turns are two sequences.
  const uint64_t before = server.RequestCount();
  for (int64_t number = 0; number < 200; ++number) {
    for (const int64_t track : {1, 2}) {
      source.Update("track_id", track);
      ASSERT_EQ(AllBytes(source.Read(number)), clip.samples[static_cast<size_t>(number)]);
    }
  }
  EXPECT_THAT(server.RequestCount() - before, Le(2 * 200 * 3 / 10u));
}

TEST_F(Served, ReadsAnIndexOnceForAllSourcesThatUseIt) {
  Serve({.pictures = 200});
  const auto open = [&](SourceUnderTest& other, int64_t track = 1) {
    const uint64_t requests = server.RequestCount();
    other.Init(server.Port(), track);
    return server.RequestCount() - requests;
  };
  SourceUnderTest second, third;
  EXPECT_EQ(open(second), 1u);  // which asks for the file's version
  const Clip replaced = MakeClip({.file = folder / "b", .pictures = 30});
  server.AddTrack(1, replaced.file);
  EXPECT_GT(open(third), 1u);
  EXPECT_EQ(AllBytes(third.Read(9)), replaced.samples[9]);
  EXPECT_EQ(AllBytes(second.Read(9)), replaced.samples[9]);
}

// A track that is left alone in the middle of a sequence costs no more than the connection's
// buffers, and what was given back is not kept for ever.
TEST_F(Served, HoldsLittleThatNobodyTookOrNeedsAnyMore) {
  constexpr int64_t kMebi = 1 << 20, kPadding = 400'000;
  const Clip clip = Serve({.pictures = 480, .padding = kPadding});
  const Clip other = MakeClip({.file = folder / "b", .pictures = 40});
  server.AddTrack(2, other.file);
  const int64_t before = MemoryInUse();
  std::vector<qel::SampleContainerConstPtr> held(32);
  for (size_t number = 0; number < 400; ++number) {  // many more are asked for by now
    held[number % held.size()] = source.Read(int64_t(number));
    if (number < 350 || number % 7 != 0)
      continue;
    source.Update("track_id", 2);
    for (int read = 0; read < 40; ++read)
      source.Read(7 * read % 40);
    source.Update("track_id", 1);
    EXPECT_THAT(MemoryInUse() - before, Le(int64_t(held.size()) * kPadding + 6 * kMebi)) << number;
  }
  source.Update("track_id", 2);
  held.clear();
  EXPECT_THAT(MemoryInUse() - before, Le(6 * kMebi));
  source.Update("track_id", 1);
  for (const size_t number : {400, 401, 402})
    EXPECT_EQ(AllBytes(source.Read(int64_t(number))).size(),
              clip.samples[number].size() + kPadding);
}

TEST_F(Served, KeepsTracksThatAreReadInTurnsOnTheirWay) {
  constexpr int64_t kTracks = 12;
  const Clip clip = Serve({.pictures = 40, .padding = 100'000});
  for (int64_t track = 1; track <= kTracks; ++track) {
    server.AddTrack(track, clip.file);
    source.Update("track_id", track);
    for (int64_t number = 0; number < 4; ++number)
      source.Read(number);
  }
  for (int64_t track = kTracks; track > 0; --track) {
    const uint64_t before = server.RequestCount();
    source.Update("track_id", track);
    source.Read(4);
    EXPECT_EQ(server.RequestCount(), before) << track;
  }
}

// Read so many samples at that distance, and then another: few requests, and little that was asked
// for and is not used.
TEST_F(Served, FollowsAPatternAndStopsWithIt) {
  const Clip clip = Serve({.pictures = 1000});
  const struct {
    int64_t first, step, count;
    uint64_t requests;  // at most
  } cases[] = {{0, 1, 2, 2},        {0, 1, 3, 3},      {100, 1, 30, 13},     {100, 1, 800, 160},
               {999, -1, 3, 4},     {900, -1, 30, 14}, {999, -1, 1000, 200}, {0, 2, 400, 440},
               {999, -2, 400, 440}, {0, 8, 100, 112},  {999, -8, 100, 112}};
  for (const auto& [first, step, count, most] : cases) {
    SCOPED_TRACE(::testing::Message() << count << " samples from " << first << " by " << step);
    // A server of its own: what was given up before may be counted late.
    Player::StorageServer own{{}};
    own.AddTrack(1, clip.file);
    SourceUnderTest reader;
    reader.Init(own.Port());
    const uint64_t requests = own.RequestCount(), bytes = own.BytesRequested();
    std::vector<int64_t> numbers;
    for (int64_t i = 0; i < count; ++i) {
      numbers.push_back(first + i * step);
      ASSERT_EQ(AllBytes(reader.Read(numbers.back())),
                clip.samples[static_cast<size_t>(numbers.back())]);
    }
    EXPECT_THAT(own.RequestCount() - requests, Le(most));
    if (step == 1 || step == -1) {
      const uint64_t used = BytesOf(clip, numbers);
      const uint64_t ahead = std::max(used / 10, 4 * used / numbers.size());
      EXPECT_THAT(own.BytesRequested() - bytes, Le((count < 3 ? used : used + ahead) * 21 / 20));
    }
  }
}

// Those that lie in it take no request of their own, in whatever order; others end it.
TEST_F(Served, DeliversFirstSamplesOutOfTheBeginningThatItsOpeningAskedFor) {
  for (const ClipSpec& spec : {ClipSpec{}, ClipSpec{.container = Container::Mov},
                               ClipSpec{.container = Container::Mov, .headerFirst = true}}) {
    ClipSpec clipSpec = spec;
    clipSpec.file = folder / "b";
    clipSpec.pictures = 200;
    const Clip clip = MakeClip(clipSpec);
    constexpr int64_t kBeginning = 100'000;
    for (const std::vector<int64_t>& steps :
         std::vector<std::vector<int64_t>>{{1}, {2, -1}, {3}, {-1}, {1, 1, 1, 1, -4, 30}}) {
      SCOPED_TRACE(::testing::PrintToString(steps));
      Player::StorageServer own{{}};
      own.AddTrack(1, clip.file);
      SourceUnderTest reader;
      reader.limits = {{"beginning_bytes", kBeginning}};
      reader.Init(own.Port());
      EXPECT_THAT(own.RequestCount(), Le(2u));
      const auto infos = reader.media->GetDefinedOutput("")->GetVideoInfoList();
      const auto index = dynamic_cast<const qel::TrackInfo&>(*infos.at(0)).Index();
      const auto isInside = [&](int64_t number) {
        return index->At(number).offset + index->At(number).size <= kBeginning;
      };
      ASSERT_TRUE(isInside(9) && !isInside(150));
      bool areInside = true;
      const uint64_t requests = own.RequestCount();
      int64_t number = steps.front() < 0 ? 199 : 0;
      for (size_t i = 0; number >= 0 && number < 200; number += steps[i++ % steps.size()]) {
        ASSERT_EQ(AllBytes(reader.Read(number)), clip.samples[static_cast<size_t>(number)]);
        areInside = areInside && isInside(number) && i < 2;  // then what follows is asked for
        if (areInside) {
          EXPECT_EQ(own.RequestCount(), requests) << number;
        }
      }
      if (steps == std::vector<int64_t>{1}) {
        EXPECT_THAT(own.BytesRequested(),
                    Le(std::filesystem::file_size(clip.file) + (64 << 10) + 2000));
      }
      reader.Read(0);  // and with another one's reading, it is given up
      reader.Read(150);
      const uint64_t before = own.RequestCount();
      reader.Read(3);
      EXPECT_EQ(own.RequestCount(), before + 1);
    }
  }
}

TEST_F(Served, HoldsBeginningsOfManyTracksWithinItsMemory) {
  constexpr int64_t kMebi = 1 << 20;
  source.limits = {{"beginning_bytes", 4 * kMebi}};
  const Clip clip = Serve({.pictures = 8, .padding = kMebi});
  const int64_t before = MemoryInUse();
  for (int64_t track = 2; track < 40; ++track) {
    server.AddTrack(track, clip.file);
    source.Update("track_id", track);
    EXPECT_THAT(MemoryInUse() - before, Le(qel::kMaxReadAheadBytes + 8 * kMebi)) << track;
  }
  for (const int64_t track : {1, 20, 39}) {
    source.Update("track_id", track);
    EXPECT_EQ(AllBytes(source.Read(0)).size(), clip.samples[0].size() + kMebi);
  }
}

TEST_F(Served, GoesBackAndForthInMemory) {
  const Clip clip = Serve({.pictures = 100});
  uint64_t requests = 0;
  for (int leg = 0; leg < 10; ++leg) {
    for (int64_t i = 0; i < 20; ++i) {
      const int64_t number = leg % 2 == 0 ? 40 + i : 59 - i;
      ASSERT_EQ(AllBytes(source.Read(number)), clip.samples[static_cast<size_t>(number)]);
    }
    if (leg == 2)
      requests = server.RequestCount();
  }
  EXPECT_EQ(server.RequestCount(), requests);
}

// What is asked for and not delivered lies in memory, when it is read backward.
TEST_F(Served, ReadsNoMoreAheadThanItsMemoryForAllTracks) {
  constexpr int64_t kSample = 4 << 20;
  const Clip clip = Serve({.pictures = 16, .padding = kSample});
  for (const int64_t track : {2, 3, 4}) {
    server.AddTrack(track, clip.file);
    source.Update("track_id", track);
  }
  const uint64_t before = server.BytesRequested();
  int64_t used = 0;
  for (int64_t number = 15; number >= 9; --number) {
    for (const int64_t track : {1, 2, 3, 4}) {
      source.Update("track_id", track);
      EXPECT_GT(AllBytes(source.Read(number)).size(), static_cast<size_t>(kSample));
      used += kSample;
      EXPECT_LE(static_cast<int64_t>(server.BytesRequested() - before) - used,
                qel::kMaxReadAheadBytes + kSample);
    }
  }
}

// The server would not wait for that long: what was under way is asked for once more.
TEST_F(Served, AsksAgainAfterAPauseInASequence) {
  source.timeoutMs = 200;
  const Clip clip = Serve({.pictures = 40});
  const uint64_t before = server.BytesRequested();
  std::vector<int64_t> numbers;
  for (int64_t number = 0; number < 40; ++number) {
    if (number == 20)
      std::this_thread::sleep_for(std::chrono::milliseconds(250));
    EXPECT_EQ(AllBytes(source.Read(number)), clip.samples[static_cast<size_t>(number)]);
    numbers.push_back(number);
  }
  EXPECT_GT(server.BytesRequested() - before, BytesOf(clip, numbers) + clip.samples[20].size());
}

TEST_F(Served, TellsTimesOfAVariableRate) {
  const Clip clip = Serve({.container = Container::Mov, .pictures = 9, .variableRate = true});
  for (int64_t time = 0; time < 12; ++time) {  // the last of each three lasts two periods
    const int64_t number = time / 4 * 3 + std::min<int64_t>(time % 4, 2);
    const auto container = source.Read(time);
    ASSERT_EQ(AllBytes(container), clip.samples[static_cast<size_t>(number)]) << time;
    const auto& limits = container->GetTimeInfo("StorageTimePoint");
    const auto& [numerator, denominator] = limits.GetStartTime().GetEditRate();
    EXPECT_EQ(limits.GetStartTime().GetTimeNumber() * 25 * denominator,
              (number + number / 3) * numerator);
    EXPECT_EQ(limits.GetDurationNumber() * 25 * denominator, (number % 3 == 2 ? 2 : 1) * numerator);
  }
}

TEST_F(Served, DeliversNothingOutsideAndAfterARemoval) {
  EXPECT_THAT(ErrorOf([&] { source.Update("track_id", 1); }), HasSubstr("no initial config"));
  const Clip clip = Serve({.interlaced = true});
  for (const int64_t outside : {int64_t{-1}, int64_t{10}, INT64_MAX})
    EXPECT_EQ(source.Read(outside), nullptr);
  EXPECT_THAT(ErrorOf([&] { source.Goto(1, 0, 1); }), HasSubstr("0/1"));
  // Fields are views of one buffer, which they keep.
  const auto fields = source.Read(9)->GetAllSamples();
  ASSERT_EQ(fields.size(), 2u);
  EXPECT_EQ(fields[0]->GetData()->GetInnerBuffer() + fields[0]->GetData()->GetDataSize(),
            fields[1]->GetData()->GetInnerBuffer());

  source.Update("remove_track", 99);
  source.Update("remove_track", 1);
  EXPECT_THAT(ErrorOf([&] { source.Goto(0); }), HasSubstr("no track is selected"));
  EXPECT_THAT(ErrorOf([&] { source.media->GetSample(); }), HasSubstr("no track is selected"));
  source.Update("track_id", 1);
  EXPECT_EQ(AllBytes(source.Read(0)), clip.samples[0]);
}

TEST_F(Served, KeepsSoManyTracksOpenAndNoMore) {
  const Clip clip = Serve({.pictures = 1});
  for (int64_t id = 2; id <= 257; ++id) {
    server.AddTrack(id, clip.file);
    EXPECT_THAT(ErrorOf([&] { source.Update("track_id", id); }),
                Says(id < 257 ? "" : ":T257: 256 tracks are open"));
  }
  source.Update("remove_track", 7);
  source.Update("track_id", 257);
  EXPECT_EQ(AllBytes(source.Read(0)), clip.samples[0]);
}

Bytes8 Big32(size_t number) {
  return {uint8_t(number >> 24), uint8_t(number >> 16), uint8_t(number >> 8), uint8_t(number)};
}

// A file that announces ten million samples of one size, in chunks of two, and holds the places of
// so many chunks.
std::filesystem::path GreatMov(const std::filesystem::path& file, size_t chunks) {
  Bytes8 mov = ReadFile(MakeClip({.file = file, .container = Container::Mov, .pictures = 1}).file);
  mov = Patched(mov, "stsz", 8, {0, 0, 4, 0, 0, 0x98, 0x96, 0x80});
  mov = Patched(mov, "stsc", 16, Big32(2));
  mov = Patched(mov, "stco", 8, Big32(chunks));
  const auto at = [&](std::string_view name) {
    return static_cast<size_t>(std::search(mov.begin(), mov.end(), name.begin(), name.end()) -
                               mov.begin());
  };
  const size_t end = at("stco") + 12 + 4 * chunks;
  for (const char* box : {"moov", "trak", "mdia", "minf", "stbl", "stco"})
    mov = Patched(mov, box, -4, Big32(end - at(box) + 4));
  mov.resize(std::min(mov.size(), end));
  WriteFile(file, mov);
  std::filesystem::resize_file(file, end);
  return file;
}

// What a file merely announces takes none.
TEST_F(Served, KeepsIndexesWithinTheirMemory) {
  constexpr int64_t kMebi = 1 << 20;
  Serve({});
  for (int64_t id = 10; id < 22; ++id)
    server.AddTrack(id, GreatMov(folder / "announces", 10));
  const int64_t before = MemoryInUse();
  for (int64_t id = 10; id < 22; ++id)
    source.Update("track_id", id);
  EXPECT_LT(MemoryInUse() - before, kMebi);

  for (int64_t id = 30; id < 33; ++id) {
    server.AddTrack(id, GreatMov(folder / "holds", 5'000'000));
    EXPECT_THAT(ErrorOf([&] { source.Update("track_id", id); }),
                Says(id < 32 ? "" : ":T32: the indexes of the open tracks take"));
    EXPECT_LT(MemoryInUse() - before, qel::kMaxIndexMemory + kMebi) << id;
  }
  for (const int64_t id : {30, 31})
    source.Update("remove_track", id);
  EXPECT_LT(MemoryInUse() - before, kMebi);
}

TEST_F(Served, ReadsSamplesAsLargeAsAllowed) {
  const Clip clip = Serve({.container = Container::Mov, .pictures = 1});
  const auto mov = ReadFile(clip.file);
  for (const auto excess : Bytes8{0, 1}) {
    WriteFile(clip.file, Patched(mov, "stsz", 8, {1, 128, 0, excess}));
    std::filesystem::resize_file(clip.file, qel::kMaxPictureBytes + 100'000);
    source.Init(server.Port());
    EXPECT_THAT(ErrorOf([&] {
                  EXPECT_EQ(AllBytes(source.media->GetSample()).size(), qel::kMaxPictureBytes);
                }),
                Says(excess == 0 ? "" : "of 25165825 bytes is larger than"));
  }
}

TEST_F(Served, TellsRepeatedAndMissingSamplesFromAnIndexThatIsWrong) {
  const Clip clip = Serve({});
  Bytes8 bytes = ReadFile(clip.file);
  for (const ptrdiff_t empty : {0, 3})
    bytes = Patched(bytes, "idx1", 8 + empty * 16 + 12, {0, 0, 0, 0});  // the size
  const std::string_view idx1 = "idx1";
  const auto entries = std::search(bytes.begin(), bytes.end(), idx1.begin(), idx1.end()) + 8;
  entries[6 * 16 + 8] ^= 4;  // the offset
  std::fill_n(entries + 9 * 16 + 8, 4, uint8_t{0x7F});
  const auto& seventh = clip.samples[7];
  const auto chunk = std::search(bytes.begin(), bytes.end(), seventh.begin(), seventh.end());
  chunk[-4] ^= 1;  // the length that stands there
  const std::map<int64_t, const char*> errors = {
      {6, "index does not match"}, {7, "index does not match"}, {9, "truncated"}};
  WriteFile(clip.file, bytes);
  source.Init(server.Port());
  for (int64_t number = 0; number < 10; ++number) {
    qel::SampleContainerConstPtr container;
    const std::string error = ErrorOf([&] { container = source.Read(number); });
    EXPECT_THAT(error, Says(errors.contains(number) ? errors.at(number) : "")) << number;
    if (number == 0 || errors.contains(number))
      EXPECT_EQ(container, nullptr);
    else
      EXPECT_EQ(AllBytes(container), clip.samples[static_cast<size_t>(number == 3 ? 2 : number)]);
  }
}

TEST(StorageSource, TakesAddressesThatAreNothingElse) {
  const std::pair<const char*, int64_t> wrong[] = {{"", 80},
                                                   {"user@127.0.0.1", 80},
                                                   {"127.0.0.1/x?", 80},
                                                   {"127.0.0.1:81", 80},
                                                   {"[::1]", 80},
                                                   {"a\r\nX: y", 80},
                                                   {"%61", 80},
                                                   {"127.0.0.1", 0},
                                                   {"127.0.0.1", -1},
                                                   {"127.0.0.1", 65536},
                                                   {"host%eth0", 80},
                                                   {"fe80::1%", 80},
                                                   {"fe80::1%a/b", 80},
                                                   {"fe80::1%nothing0", 80}};
  for (const auto& [address, port] : wrong) {
    SourceUnderTest source;
    EXPECT_THAT(ErrorOf([&, host = address, number = port] { source.Init(number, 1, "", host); }),
                HasSubstr("\"tcp_"))
        << address << " " << port;
  }
  SourceUnderTest source;
  EXPECT_THAT(ErrorOf([&] { source.Init(1, 7, "", "::1"); }),
              AllOf(HasSubstr("track [::1]:1:T7: "), HasSubstr("connect")));
  EXPECT_THAT(ErrorOf([&] { source.Init(1, 7, "", "fe80::1%lo"); }),
              AllOf(HasSubstr("track [fe80::1%lo]:1:T7: "), HasSubstr("connect")));
  EXPECT_THAT(ErrorOf([&] { source.Init(0, 1, std::string(200, 'x')); }),
              HasSubstr("unix_domain_socket"));
}

}  // namespace
}  // namespace Moravel::Test
