#include <algorithm>
#include <numeric>
#include <random>

#include "SourceFixture.h"

namespace Moravel::Test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Le;

struct Variant {
  std::string name;
  ClipSpec clip;
  bool overUnixSocket = false;
  std::vector<int> channels = {0};  // in stored order
};

std::ostream& operator<<(std::ostream& out, const Variant& variant) {
  return out << variant.name;
}

ClipSpec Spec(Container container, bool bottomFirst = false, FieldMark mark = FieldMark::None) {
  ClipSpec spec;
  spec.container = container;
  spec.pictures = 40;
  spec.rateNumerator = 30000;
  spec.rateDenominator = 1001;
  spec.interlaced = bottomFirst || mark != FieldMark::None;
  spec.bottomFirst = bottomFirst;
  spec.mark = mark;
  return spec;
}

class SourceVariants : public ::testing::TestWithParam<Variant> {};

INSTANTIATE_TEST_SUITE_P(
    All, SourceVariants,
    ::testing::Values(
        Variant{"AviProgressive", Spec(Container::Avi)},
        Variant{"MovProgressiveUnixSocket", Spec(Container::Mov), true},
        Variant{"AviTopFirst", Spec(Container::Avi, false, FieldMark::Avi1), true, {0, 1}},
        Variant{"AviBottomFirst", Spec(Container::Avi, true, FieldMark::Avi1), false, {1, 0}},
        Variant{"MovTopFirst", Spec(Container::Mov, false, FieldMark::FileAtom), false, {0, 1}},
        Variant{"MovBottomFirst", Spec(Container::Mov, true, FieldMark::FileAtom), true, {1, 0}}),
    [](const auto& variant) { return variant.param.name; });

TEST_P(SourceVariants, DeliversWhatWasMuxedInAnyOrder) {
  const Variant& variant = GetParam();
  const TempFolder folder;
  ClipSpec spec = variant.clip;
  spec.file = folder / "clip";
  const Clip clip = MakeClip(spec);
  const std::string socket = variant.overUnixSocket ? (folder / "socket").string() : "";
  Player::StorageServer server({.unixDomainSocket = socket});
  server.AddTrack(7, clip.file);
  SourceUnderTest source;
  source.Init(server.Port(), 7, socket);

  const auto infos = source.media->GetDefinedOutput("")->GetVideoInfoList();
  ASSERT_EQ(infos.size(), variant.channels.size());
  EXPECT_EQ(infos[0]->GetHeight(), spec.interlaced ? spec.height / 2 : spec.height);
  EXPECT_EQ(infos[0]->GetSampleCount(), spec.pictures);
  EXPECT_EQ(infos[0]->GetEditRate(), qel::EditRate(30000, 1001));

  std::vector<int64_t> order(static_cast<size_t>(spec.pictures));
  std::iota(order.begin(), order.end(), 0);
  std::shuffle(order.begin(), order.end(), std::mt19937(1));
  for (const int64_t number : order) {
    const auto sought = source.Goto(number, 30000, 1001);
    EXPECT_EQ(sought.GetTimeNumber(), number);
    const auto container = source.media->GetSample();
    ASSERT_EQ(AllBytes(container), clip.samples[static_cast<size_t>(number)]) << number;
    const auto& limits = container->GetTimeInfo("StorageTimePoint");
    EXPECT_EQ(limits.GetStartTime().GetTimeNumber(), number);
    EXPECT_EQ(limits.GetStartTime().GetEditRate(), qel::EditRate(30000, 1001));
    EXPECT_EQ(limits.GetDurationNumber(), 1);
    std::vector<int> channels;
    for (const auto& sample : container->GetAllSamples())
      channels.push_back(sample->GetChannelInfo()->GetChannels().at(0));
    EXPECT_EQ(channels, variant.channels);
    if (spec.interlaced) {
      EXPECT_EQ(Bytes(container->GetAllSamples()[0]).size(),
                clip.secondFields[static_cast<size_t>(number)]);
    }
  }
  source.Goto(0);
  for (const auto& expected : clip.samples)
    ASSERT_EQ(AllBytes(source.media->GetSample()), expected);
  EXPECT_EQ(source.media->GetSample(), nullptr);
}

TEST(StorageSource, TakesOneRequestForARandomSampleAndFewForASequence) {
  const TempFolder folder;
  const Clip clip = MakeClip({.file = folder / "a", .pictures = 200});
  Player::StorageServer server({});
  server.AddTrack(1, clip.file);
  server.AddTrack(2, clip.file);
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
  for (int64_t id = 0; id <= 256; ++id)
    server.AddTrack(id, clip.file);
  SourceUnderTest source;
  source.Init(server.Port(), 0);
  for (int64_t id = 1; id < 256; ++id)
    source.Update("track_id", id);
  EXPECT_THAT(ErrorOf([&] { source.Update("track_id", 256); }),
              AllOf(HasSubstr(":T256: "), HasSubstr("remove_track")));
  source.Update("remove_track", 7);
  source.Update("track_id", 256);
  EXPECT_EQ(AllBytes(source.Read(0)), clip.samples[0]);
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
