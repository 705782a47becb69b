#include <algorithm>
#include <chrono>
#include <numeric>
#include <optional>
#include <random>
#include <thread>

#include "SourceFixture.h"
#include "SparseFile.h"
#include "TrackServer.h"
#include "elements/storage/StorageSource.h"

namespace Moravel::Test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Le;

struct Variant {
  const char* name;
  Container container;
  bool bottomFirst = false;
  FieldMark mark = FieldMark::None;
  std::vector<int> channels = {0};  // in stored order
};

const Variant kVariants[] = {
    {"AVI", Container::Avi},
    {"MOV", Container::Mov},
    {"AVI, top first", Container::Avi, false, FieldMark::Avi1, {0, 1}},
    {"AVI, bottom first", Container::Avi, true, FieldMark::Avi1, {1, 0}},
    {"MOV, top first", Container::Mov, false, FieldMark::FileAtom, {0, 1}},
    {"MOV, bottom first", Container::Mov, true, FieldMark::FileAtom, {1, 0}}};

class Servers : public ::testing::TestWithParam<ServerKind> {
 protected:
  void SetUp() override {
    if (GetParam().isNginx && FindNginx().empty())
      GTEST_SKIP() << "nginx is not installed";
    server.emplace(GetParam());
  }
  void Init(SourceUnderTest& source, int64_t track) const {
    source.Init(server->Port(), track, server->UnixDomainSocket());
  }

  const TempFolder folder;
  std::optional<TrackServer> server;
};

INSTANTIATE_TEST_SUITE_P(All, Servers,
                         ::testing::Values(ServerKind{"Embedded", false, false},
                                           ServerKind{"EmbeddedOnUnixSocket", false, true},
                                           ServerKind{"Nginx", true, false},
                                           ServerKind{"NginxOnUnixSocket", true, true}),
                         [](const auto& kind) { return kind.param.name; });

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
  for (const auto& sample : container->GetAllSamples())
    channels.push_back(sample->GetChannelInfo()->GetChannels().at(0));
  EXPECT_EQ(channels, variant.channels);
  if (channels.size() == 2) {
    EXPECT_EQ(Bytes(container->GetAllSamples()[0]).size(), clip.secondFields[number]);
  }
}

TEST_P(Servers, DeliverWhatWasMuxedInAnyOrder) {
  std::vector<size_t> order(40);
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), std::mt19937(1));
  SourceUnderTest source;
  for (int64_t track = 7; const Variant& variant : kVariants) {
    SCOPED_TRACE(variant.name);
    const bool isInterlaced = variant.channels.size() == 2;
    const Clip clip = MakeClip({.file = folder / std::to_string(++track),
                                .container = variant.container,
                                .pictures = 40,
                                .rateNumerator = 30000,
                                .rateDenominator = 1001,
                                .interlaced = isInterlaced,
                                .bottomFirst = variant.bottomFirst,
                                .mark = variant.mark});
    server->SetTrack(track, clip.file);
    Init(source, track);
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

TEST_P(Servers, TellOfAReplacedFileAndOfOneThatIsNotThere) {
  const Clip clip = MakeClip({.file = folder / "a", .pictures = 40});
  const Clip other = MakeClip({.file = folder / "b", .pictures = 40, .quality = 50});
  server->SetTrack(1, clip.file);
  SourceUnderTest source;
  Init(source, 1);
  EXPECT_EQ(AllBytes(source.Read(4)), clip.samples[4]);
  server->SetTrack(1, other.file);
  EXPECT_EQ(AllBytes(source.Read(5)), other.samples[5]);
  EXPECT_EQ(AllBytes(source.Read(39)), other.samples[39]);
  EXPECT_THAT(ErrorOf([&] { source.Update("track_id", 2); }),
              AllOf(HasSubstr(":T2: "), HasSubstr("404")));
  server->SetTrack(2, clip.file);
  source.Update("track_id", 2);
  EXPECT_EQ(AllBytes(source.Read(8)), clip.samples[8]);
}

TEST(StorageSource, TakesOneRequestForARandomSampleAndFewForASequence) {
  const TempFolder folder;
  const Clip clip = MakeClip({.file = folder / "a", .pictures = 200});
  Player::StorageServer server({});
  for (int64_t track = 1; track <= 12; ++track)
    server.AddTrack(track, clip.file);
  SourceUnderTest source;
  source.Init(server.Port());
  EXPECT_THAT(server.RequestCount(), Le(10u));

  const uint64_t requests = server.RequestCount();
  const uint64_t bytes = server.BytesRequested();
  for (const int64_t number : {100, 50, 3, 199})
    EXPECT_EQ(AllBytes(source.Read(number)), clip.samples[static_cast<size_t>(number)]);
  EXPECT_EQ(server.RequestCount() - requests, 4u);
  size_t expected = 0;
  for (const size_t number : {100, 50, 3, 199})
    expected += clip.samples[number].size();
  EXPECT_THAT(server.BytesRequested() - bytes, Le(expected + 4 * 8));

  // Two tracks in turns are two sequences.
  const uint64_t before = server.RequestCount();
  for (int64_t number = 0; number < 200; ++number) {
    for (const int64_t track : {1, 2}) {
      source.Update("track_id", track);
      ASSERT_EQ(AllBytes(source.Read(number)), clip.samples[static_cast<size_t>(number)]);
    }
  }
  EXPECT_THAT(server.RequestCount() - before, Le(2 * 200 * 3 / 10u));

  // So many that not all can be under way at a time.
  for (int64_t number = 0; number < 8; ++number) {
    for (int64_t track = 1; track <= 12; ++track) {
      source.Update("track_id", track);
      ASSERT_EQ(AllBytes(source.Read(number)), clip.samples[static_cast<size_t>(number)]);
    }
  }
}

TEST(StorageSource, AsksAgainAfterAPauseInASequence) {
  const TempFolder folder;
  const Clip clip = MakeClip({.file = folder / "a", .pictures = 40});
  Player::StorageServer server({});
  server.AddTrack(1, clip.file);
  SourceUnderTest source;
  source.timeoutMs = 200;
  source.Init(server.Port());
  source.Goto(0);
  for (size_t number = 0; number < 21; ++number) {
    if (number == 20)
      std::this_thread::sleep_for(std::chrono::milliseconds(250));
    const uint64_t before = server.RequestCount();
    EXPECT_EQ(AllBytes(source.media->GetSample()), clip.samples[number]);
    if (number >= 19) {  // the server would not wait for that long
      EXPECT_EQ(server.RequestCount() - before, number == 19 ? 0 : 1);
    }
  }
}

TEST(StorageSource, TellsTimesOfAVariableRate) {
  const TempFolder folder;
  const Clip clip = MakeClip(
      {.file = folder / "a", .container = Container::Mov, .pictures = 9, .variableRate = true});
  Player::StorageServer server({});
  server.AddTrack(1, clip.file);
  SourceUnderTest source;
  source.Init(server.Port());
  for (size_t i = 0; i < clip.samples.size(); ++i) {
    const bool isLast = i + 1 == clip.samples.size();
    for (int64_t time = clip.times[i]; time < (isLast ? clip.times[i] + 1 : clip.times[i + 1]);
         ++time) {
      const auto container = source.Read(time);
      ASSERT_EQ(AllBytes(container), clip.samples[i]) << time;
      const auto& limits = container->GetTimeInfo("StorageTimePoint");
      const auto& start = limits.GetStartTime();
      EXPECT_EQ(start.GetTimeNumber() * 25 * start.GetEditRate()._denominator,
                clip.times[i] * start.GetEditRate()._numerator);
      EXPECT_GT(limits.GetDurationNumber(), 0);
    }
  }
}

TEST(StorageSource, DeliversNothingOutsideAndAfterARemoval) {
  const TempFolder folder;
  const Clip clip = MakeClip({.file = folder / "a", .interlaced = true});
  Player::StorageServer server({});
  server.AddTrack(1, clip.file);
  SourceUnderTest source;
  EXPECT_THAT(ErrorOf([&] { source.Update("track_id", 1); }), HasSubstr("no initial config"));
  source.Init(server.Port());
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

TEST(StorageSource, KeepsSoManyTracksOpenAndNoMore) {
  const TempFolder folder;
  const Clip clip = MakeClip({.file = folder / "a", .pictures = 1});
  Player::StorageServer server({});
  constexpr auto kMost = static_cast<int64_t>(qel::kMaxOpenTracks);
  for (int64_t id = 0; id <= kMost; ++id)
    server.AddTrack(id, clip.file);
  SourceUnderTest source;
  source.Init(server.Port(), 0);
  for (int64_t id = 1; id < kMost; ++id)
    source.Update("track_id", id);
  EXPECT_THAT(ErrorOf([&] { source.Update("track_id", kMost); }),
              AllOf(HasSubstr(":T256: 256 tracks are open"), HasSubstr("remove_track")));
  source.Update("remove_track", 7);
  source.Update("track_id", kMost);
  EXPECT_EQ(AllBytes(source.Read(0)), clip.samples[0]);
}

TEST(StorageSource, ReadsSamplesAsLargeAsAllowed) {
  const TempFolder folder;
  Player::StorageServer server({});
  for (const int64_t size : {qel::kMaxSampleBytes, qel::kMaxSampleBytes + 1}) {
    const auto made = MakeSparseMov(
        {.samples = 1, .stride = size, .sampleSize = static_cast<uint32_t>(size)}, MakeJpeg({}));
    made.file.Save(folder / "large");
    server.AddTrack(1, folder / "large");
    SourceUnderTest source;
    source.Init(server.Port());
    size_t delivered = 0;
    const std::string error = ErrorOf([&] {
      delivered = source.media->GetSample()->GetAllSamples()[0]->GetData()->GetDataSize();
    });
    EXPECT_EQ(delivered, size <= qel::kMaxSampleBytes ? static_cast<size_t>(size) : 0) << error;
    EXPECT_THAT(error, HasSubstr(delivered ? "" : "sample 0 of 67108865 bytes is larger than"));
  }
}

TEST(StorageSource, TellsDroppedSamplesFromAnIndexThatIsWrong) {
  const TempFolder folder;
  const Clip clip = MakeClip({.file = folder / "a"});
  Bytes8 bytes = ReadFile(clip.file);
  const std::string_view idx1 = "idx1";
  const auto entries = std::search(bytes.begin(), bytes.end(), idx1.begin(), idx1.end()) + 8;
  std::fill_n(entries + 3 * 16 + 12, 4, uint8_t{0});  // the size
  entries[6 * 16 + 8] ^= 4;                           // the offset
  WriteFile(clip.file, bytes);
  Player::StorageServer server({});
  server.AddTrack(1, clip.file);
  SourceUnderTest source;
  source.Init(server.Port());
  for (int64_t number = 0; number < 10; ++number) {
    qel::SampleContainerConstPtr container;
    const std::string error = ErrorOf([&] { container = source.Read(number); });
    EXPECT_EQ(container != nullptr, number != 3 && number != 6) << number;
    EXPECT_THAT(error, HasSubstr(number == 6 ? "index does not match" : ""));
    EXPECT_EQ(error.empty(), number != 6);
    if (container) {
      EXPECT_EQ(AllBytes(container), clip.samples[static_cast<size_t>(number)]);
    }
  }
}

TEST(StorageSource, RefusesAddressesThatAreMoreThanAnAddress) {
  const std::pair<const char*, int64_t> wrong[] = {{"", 80},
                                                   {"user@127.0.0.1", 80},
                                                   {"127.0.0.1/x?", 80},
                                                   {"127.0.0.1:81", 80},
                                                   {"[::1]", 80},
                                                   {"::1%lo/..", 80},
                                                   {"http://a", 80},
                                                   {"a b", 80},
                                                   {"a\r\nX: y", 80},
                                                   {"a#", 80},
                                                   {"%61", 80},
                                                   {"127.0.0.1", 0},
                                                   {"127.0.0.1", -1},
                                                   {"127.0.0.1", 65536}};
  for (const auto& [address, port] : wrong) {
    SourceUnderTest source;
    EXPECT_THAT(ErrorOf([&, host = address, number = port] { source.Init(number, 1, "", host); }),
                HasSubstr("\"tcp_"))
        << address << " " << port;
  }
  SourceUnderTest source;
  EXPECT_THAT(ErrorOf([&] { source.Init(0, 1, std::string(200, 'x')); }),
              HasSubstr("unix_domain_socket"));
}

}  // namespace
}  // namespace Moravel::Test
