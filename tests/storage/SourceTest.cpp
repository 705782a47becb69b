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

}  // namespace
}  // namespace Moravel::Test
