#include "SourceFixture.h"
#include "elements/storage/HttpResponse.h"
#include "support/FaultyServer.h"

namespace Moravel::Test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using Part = Fault::Part;

struct FaultCase {
  std::string name;
  Fault fault;
  std::string error;
};

std::ostream& operator<<(std::ostream& out, const FaultCase& c) {
  return out << c.name;
}

class SourceFaults : public ::testing::TestWithParam<FaultCase> {
 protected:
  SourceFaults() {
    server.SetTrack(1, clip.file);
    server.SetTrack(2, clip.file);
    source.stallTimeoutMs = 100;
    source.Init(server.Port());
  }
  ~SourceFaults() override { server.ReleaseStalls(); }

  const TempFolder folder;
  const Clip clip = MakeClip({.file = folder / "a", .pictures = 40});
  FaultyServer server;
  SourceUnderTest source;
};

INSTANTIATE_TEST_SUITE_P(
    All, SourceFaults,
    ::testing::Values(
        FaultCase{"StallsBeforeTheAnswer", {.stall = {{Part::Header, 0}}}, "nothing for 100 ms"},
        FaultCase{"StallsInTheBody", {.stall = {{Part::Body, 100}}}, "nothing for 100 ms"},
        FaultCase{"CutsTheHeader", {.cut = {{Part::Header, 20}}}, ""},
        FaultCase{"CutsTheBody", {.cut = {{Part::Body, 100}}}, "after 100 of"},
        FaultCase{"NotFound", {.status = 404}, "404"},
        FaultCase{"ServerError", {.status = 500}, "500"},
        FaultCase{"OtherRange", {.contentRange = "bytes 1-2/999999"}, ""},
        FaultCase{"NoRange", {.contentRange = "nonsense"}, "Content-Range \"nonsense\""},
        FaultCase{"TooFewBytes", {.bodyExcess = -1}, "where"},
        FaultCase{"TooManyBytes", {.bodyExcess = 1}, "more than"},
        FaultCase{"TheWholeFile", {.ignoreRange = true}, "200"},
        FaultCase{"LongHeader", {.headerPadding = qel::kMaxHeaderBytes}, "header bytes"},
        FaultCase{"RedirectsInCircles", {.status = 302, .location = "/tracks/1"}, "redirects"},
        FaultCase{"RedirectsElsewhere", {.status = 302, .location = "file:///etc/passwd"}, "file"}),
    [](const auto& c) { return c.param.name; });

TEST_P(SourceFaults, AreErrorsAndTheNextOrderIsServed) {
  const auto isTheError = AllOf(HasSubstr("track 127.0.0.1:"), HasSubstr(GetParam().error));
  const auto read = [&](int64_t number) {
    source.Update("track_id", 1);
    return AllBytes(source.Read(number));
  };
  const auto fail = [&](auto action) {
    server.SetFault(GetParam().fault);
    EXPECT_THAT(ErrorOf(action), isTheError);
    server.ReleaseStalls();
    server.SetFaults({});
  };
  fail([&] { read(20); });
  EXPECT_EQ(read(20), clip.samples[20]);
  EXPECT_EQ(read(21), clip.samples[21]);  // and in a sequence, where it shows with a later sample
  fail([&] {
    for (int64_t number = 22; number < 40; ++number)
      ASSERT_EQ(read(number), clip.samples[static_cast<size_t>(number)]);
  });
  EXPECT_EQ(read(39), clip.samples[39]);
  fail([&] { source.Update("track_id", 2); });
  EXPECT_THROW(source.Goto(0), qel::QELRuntimeError);
  source.Update("track_id", 2);
  EXPECT_EQ(AllBytes(source.Read(5)), clip.samples[5]);
}

TEST_F(SourceFaults, AServerThatIsNotThereIsAnErrorUntilItIs) {
  server.SetListening(false);
  EXPECT_THAT(ErrorOf([&] { source.Read(3); }), HasSubstr(":T1: "));
  SourceUnderTest late;
  EXPECT_THAT(ErrorOf([&] { late.Init(server.Port()); }), HasSubstr(":T1: "));
  server.SetListening(true);
  EXPECT_EQ(AllBytes(source.Read(3)), clip.samples[3]);
  late.Update("track_id", 1);
  EXPECT_EQ(AllBytes(late.Read(3)), clip.samples[3]);
}

TEST_F(SourceFaults, AReplacedFileIsReadAgainAndNeverMixed) {
  const Clip other =
      MakeClip({.file = folder / "b", .container = Container::Mov, .pictures = 20, .quality = 50});
  EXPECT_EQ(AllBytes(source.Read(4)), clip.samples[4]);
  server.SetTrack(1, other.file);
  EXPECT_EQ(AllBytes(source.Read(5)), other.samples[5]);
  EXPECT_EQ(source.media->GetDefinedOutput("")->GetVideoInfoList().at(0)->GetSampleCount(), 20);
  EXPECT_EQ(AllBytes(source.media->GetSample()), other.samples[6]);
  EXPECT_EQ(source.Read(30), nullptr);

  // Another validator with each answer: there is no version to be had.
  source.Read(1);
  server.SetFaults([](const Request& request) {
    return Fault{.etag = '"' + std::to_string(request.number) + '"'};
  });
  EXPECT_THAT(ErrorOf([&] { source.Read(9); }), HasSubstr("replaced"));
  server.SetFaults({});
  source.Update("track_id", 1);
  EXPECT_EQ(AllBytes(source.Read(9)), other.samples[9]);
}

}  // namespace
}  // namespace Moravel::Test
