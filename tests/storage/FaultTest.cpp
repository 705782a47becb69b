#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <future>
#include <list>
#include <optional>
#include <thread>

#include "Player/QELPreloader.h"
#include "Player/QELSample.h"
#include "SourceFixture.h"
#include "elements/StopScope.h"
#include "elements/storage/HttpFile.h"
#include "elements/storage/TrackInfo.h"
#include "storage-server/Listening.h"
#include "support/FaultyServer.h"

namespace Moravel::Test {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using Part = Fault::Part;
using Result = Player::IPreloader::PreloadResult;

// What came of an order: nothing in `result` when it was an exception.
struct Answer {
  std::optional<Result> result;
  std::string error;           // of the exception, or what went to the log
  std::vector<uint8_t> bytes;  // of the sample that was delivered
};

// A host with one preloader for one server, and a queue for its samples.
class Host : public Player::CacheUpdateQueue {
 public:
  Host(uint16_t port, int64_t timeoutMs) : storage_("127.0.0.1", port), timeoutMs_(timeoutMs) {
    source_.timeoutMs = timeoutMs;
    ErrorOf([&] { source_.Init(port); });
    preloader_.SetStorageSource(storage_, source_.media, source_.control);
  }

  Answer Order(int64_t track, int64_t number) {
    using Clock = std::chrono::steady_clock;
    delivered_.clear();
    Answer answer;
    const auto limit = Clock::now() + std::chrono::milliseconds(timeoutMs_) + kSlack;
    ::testing::internal::CaptureStderr();
    try {
      answer.result =
          preloader_.Preload({Time::TimePoint().FromRatio(static_cast<uint64_t>(number), 1, 25),
                              Player::SampleRate(25, 1), this, Player::TrackId(storage_, track)});
    } catch (const qel::QELRuntimeError& error) {
      answer.error = error.what();
    }
    answer.error += ::testing::internal::GetCapturedStderr();
    EXPECT_LT(Clock::now(), limit);
    EXPECT_EQ(delivered_.size(), answer.result.value_or(Result::ERROR) == Result::ERROR ? 0 : 1);
    if (!delivered_.empty() && delivered_.front()) {
      uint64_t size = 0;
      const uint8_t* const bytes = delivered_.front()->GetData("video", size);
      answer.bytes.assign(bytes, bytes + size);
    }
    return answer;
  }

  void Push(const Player::Output& output) override { delivered_.emplace_back(output.sample_); }

 private:
  static constexpr std::chrono::seconds kSlack{10};  // of a machine that is busy otherwise

  const Player::StorageId storage_;
  const int64_t timeoutMs_;
  SourceUnderTest source_;
  Player::QELPreloader preloader_;
  std::list<std::unique_ptr<Player::ISample>> delivered_;
};

struct FaultCase {
  std::string name;
  Fault fault;
  std::string error;
  bool isRefused = false;
};

std::ostream& operator<<(std::ostream& out, const FaultCase& c) {
  return out << c.name;
}

class Faults : public ::testing::TestWithParam<FaultCase> {
 protected:
  Faults() {
    qel::RegisterBuiltinElements();
    for (const int64_t track : {1, 2, 3})
      server.SetTrack(track, clip.file);
  }
  ~Faults() override { server.ReleaseStalls(); }

  // After so many good answers.
  void Break(const FaultCase& fault, int after = 0) {
    server.SetFaults(
        [fault = fault.fault, after](uint64_t) mutable { return after-- > 0 ? Fault{} : fault; });
    server.SetListening(!fault.isRefused);
  }
  void Mend() {
    server.ReleaseStalls();
    server.SetFaults({});
    server.SetListening(true);
  }
  void ExpectServed(Host& host, int64_t track, int64_t number) {
    const Answer answer = host.Order(track, number);
    EXPECT_EQ(answer.result, Result::SUCCESS_EXIST) << answer.error;
    EXPECT_EQ(answer.bytes, clip.samples.at(static_cast<size_t>(number)));
  }

  const TempFolder folder;
  const Clip clip = MakeClip({.file = folder / "a", .pictures = 40});
  FaultyServer server;
};

INSTANTIATE_TEST_SUITE_P(
    All, Faults,
    ::testing::Values(
        FaultCase{"Refused", {}, "connect", true},
        FaultCase{"StallsBeforeTheHeader", {.stall = {{Part::Header, 0}}}, "nothing for 400 ms"},
        FaultCase{"StallsInTheBody", {.stall = {{Part::Body, 100}}}, "nothing for 400 ms"},
        FaultCase{"CutsBeforeTheHeader", {.cut = {{Part::Header, 0}}}, "closed the connection"},
        FaultCase{"CutsTheHeader", {.cut = {{Part::Header, 20}}}, ""},
        FaultCase{"CutsTheBody", {.cut = {{Part::Body, 100}}}, "after 100 of"},
        FaultCase{"WholeFile", {.ignoreRange = true}, "no byte ranges"},
        FaultCase{"RangeNotSatisfiable", {.status = 416}, "416"},
        FaultCase{"NotFound", {.status = 404}, "no such track"},
        FaultCase{"ServerError", {.status = 500}, "500: it failed"},
        FaultCase{"OtherRange", {.contentRange = "bytes 1-2/999999"}, "answered bytes 1-2"},
        FaultCase{"NoRange", {.contentRange = "nonsense"}, "Content-Range \"nonsense\""},
        FaultCase{"TooFewBytes", {.bodyExcess = -1}, "where"},
        FaultCase{"LongHeader",
                  {.headerLines = "X: " + std::string(qel::kMaxHeaderBytes, 'x') + "\r\n"},
                  "header bytes"},
        FaultCase{"RedirectsInCircles",
                  {.status = 302, .headerLines = "Location: /tracks/1\r\n"},
                  "more than the 3 times allowed"},
        FaultCase{"RedirectsElsewhere",
                  {.status = 302, .headerLines = "Location: file:///etc/passwd\r\n"},
                  "redirects to \"file:///etc"},
        FaultCase{"RedirectsToAnotherPort",
                  {.status = 302, .headerLines = "Location: http://127.0.0.1:1/\r\n"},
                  "redirects to \"http://127.0.0.1:1/"},
        FaultCase{"MoreBytesThanAnyFileHas",
                  {.contentRange = "bytes 0-16383/9223372036854775807"},
                  "9223372036854775807 bytes, at most"},
        FaultCase{"TellsTerminalsWhatToDo",
                  {.contentRange = "\x1b]0;\xc2\x9b\x9b\xc3\xa9"},
                  "\"\\x1b]0;\\xc2\\x9b\\x9b\xc3\xa9\""}),
    [](const auto& c) { return c.param.name; });

TEST_P(Faults, AreAnsweredInTimeAndTheNextOrderIsServed) {
  const FaultCase& fault = GetParam();
  const auto isTheError = AllOf(HasSubstr("track 127.0.0.1:"), HasSubstr(fault.error));
  Host host(server.Port(), fault.fault.stall ? 400 : 5000);
  const auto expectException = [&](const Answer& answer) {
    EXPECT_EQ(answer.result, std::nullopt);
    EXPECT_THAT(answer.error, isTheError);
  };
  ExpectServed(host, 1, 3);
  Break(fault);
  expectException(host.Order(1, 20));
  Mend();
  ExpectServed(host, 1, 20);

  // In a sequence it shows with a later sample: the earlier ones were on their way.
  ExpectServed(host, 1, 21);
  Break(fault);
  int64_t number = 22;
  Answer answer = host.Order(1, number);
  for (; answer.result && number < 39; answer = host.Order(1, ++number))
    ASSERT_EQ(answer.bytes, clip.samples[static_cast<size_t>(number)]);
  expectException(answer);
  Mend();
  ExpectServed(host, 1, number);
  ExpectServed(host, 1, number == 39 ? 0 : number + 1);

  // While a track is opened: by the first answer, and by a later one.
  for (const int after : {0, 1}) {
    Break(fault, after);
    answer = host.Order(2 + after, 5);
    EXPECT_EQ(answer.result, Result::ERROR);
    EXPECT_THAT(answer.error, AllOf(HasSubstr("Preload: UpdateConfig error: track 127.0.0.1:"),
                                    HasSubstr(after == 0 ? fault.error : "")));
    Mend();
    ExpectServed(host, 2 + after, 5);
  }
}

TEST_F(Faults, ACutAtAnyByteLosesNoSample) {
  std::vector<Fault::Point> points;
  for (const size_t bytes : {0, 1, 15, 60, 100})
    points.push_back({Part::Header, bytes});
  for (size_t bytes = 0; bytes < 9000; bytes += 997)
    points.push_back({Part::Body, bytes});
  Host host(server.Port(), 5000);
  for (const auto& point : points) {
    ExpectServed(host, 1, 0);
    server.SetFault({.cut = point}, 2);
    int failures = 0;
    for (int64_t number = 1; number < 40; ++number) {
      Answer answer = host.Order(1, number);
      for (; !answer.result && failures < 2; answer = host.Order(1, number))
        ++failures;
      ASSERT_EQ(answer.bytes, clip.samples[static_cast<size_t>(number)]) << answer.error;
    }
  }
}

TEST_F(Faults, ABeginningThatDoesNotComeLosesNoSample) {
  for (const auto part : {&Fault::cut, &Fault::stall}) {
    for (const size_t bytes : {0, 9'000, 17'000, 40'000}) {
      SCOPED_TRACE(bytes);
      Fault fault;
      fault.*part = {Part::Body, bytes};
      server.SetFault(fault, 2);  // and the file's last bytes
      SourceUnderTest source;
      source.timeoutMs = 200;
      source.limits = {{"beginning_bytes", 60'000}};
      int failures = ErrorOf([&] { source.Init(server.Port()); }) == "" ? 0 : 1;
      for (int64_t number = 0; number < 40;) {
        const std::string error = ErrorOf([&] {
          source.Update("track_id", 1);
          EXPECT_EQ(AllBytes(source.Read(number)), clip.samples[static_cast<size_t>(number)]);
          ++number;
        });
        failures += error.empty() ? 0 : 1;
        ASSERT_LE(failures, 2) << error;
      }
      server.ReleaseStalls();
    }
  }
}

TEST_F(Faults, AServerThatNeverAcceptsIsAnErrorAfterTheTimeout) {
  const auto listening = Player::ListenOnTcp("127.0.0.1", 0);
  ::listen(listening.Get(), 0);  // one connection waits to be accepted, others wait for that
  SourceUnderTest first;
  first.timeoutMs = 100;
  EXPECT_THAT(ErrorOf([&] { first.Init(Player::PortOf(listening)); }), HasSubstr("100 ms"));
  SourceUnderTest second;
  second.timeoutMs = 100;
  second.limits["stall_timeout_ms"] = 5000;  // not at the same moment
  EXPECT_THAT(ErrorOf([&] { second.Init(Player::PortOf(listening)); }), HasSubstr("connect"));
}

// Whatever the thread waits for, inside the preloader and its lock.
TEST_F(Faults, AStopFromAnotherThreadEndsOpeningAndReading) {
  constexpr int64_t kNever = 3'600'000;
  for (const Fault::Point& point : {Fault::Point{Part::Header, 0}, {Part::Body, 100}}) {
    Host host(server.Port(), kNever);
    for (const int64_t track : {1, 3}) {  // one that is open, and one that is not
      std::stop_source stop;
      server.SetFaults([&](uint64_t) {
        stop.request_stop();
        return Fault{.stall = point};
      });
      {
        const qel::StopScope scope(stop.get_token());
        for (int order = 0; order < 2; ++order)  // it stays
          EXPECT_THAT(host.Order(track, 20).error, HasSubstr("stopped by the host"));
      }
      Mend();
      ExpectServed(host, track, 20);
    }
  }
}

// Every byte of these shows that the server lives.
TEST_F(Faults, AServerThatDripsOrComesLateIsLeftAfterItsTime) {
  const Fault interim{.stall = {{Part::Header, 0}}, .drip = "HTTP/1.1 100 Continue\r\n\r\n"};
  const Fault lines{.stall = {{Part::Header, 30}}, .drip = "X: y\r\n"};
  const Fault oneLine{.headerLines = "X: " + std::string(200'000, 'x') + "\r\n"};
  const Fault bytes{.stall = {{Part::Body, 100}}, .drip = "!"};
  Fault chunk{.stall = {{Part::Body, 0}}, .drip = "1;" + std::string(1 << 20, 'x')};
  chunk.headerLines = "Transfer-Encoding: chunked\r\n";
  chunk.isFlood = true;
  const Fault late{.stall = {{Part::Header, 0}}, .late = std::chrono::milliseconds(250)};
  const struct {
    const char* limit;
    Fault fault;
    const char* atOpening;
    const char* atReading;
  } cases[] = {
      {"answer_timeout_ms", interim, "header within the 200 ms", "header within the 200 ms"},
      {"answer_timeout_ms", oneLine, "header line that is longer", "header line that is longer"},
      {"answer_timeout_ms", lines, "header within the 200 ms", "header within the 200 ms"},
      {"stall_timeout_ms", chunk, "server ", "server "},  // sent nothing that belongs to an answer
      {"rate_window_ms", bytes, "in 200 ms, where at least 16384", "bytes in 200 ms"},
      {"open_timeout_ms", bytes, "opening takes longer than the 200 ms", nullptr},
      {"open_timeout_ms", late, "opening takes longer than the 200 ms", ""}};
  for (const auto& [limit, fault, atOpening, atReading] : cases) {
    SCOPED_TRACE(limit);
    SourceUnderTest source;
    source.limits[limit] = 200;
    server.SetFault(fault);
    EXPECT_THAT(ErrorOf([&] { source.Init(server.Port()); }), HasSubstr(atOpening));
    Mend();
    if (atReading == nullptr)
      continue;
    source.Init(server.Port());
    server.SetFault(fault);
    EXPECT_THAT(ErrorOf([&] { source.Read(7); }), Says(atReading));
    Mend();
    EXPECT_EQ(AllBytes(source.Read(8)), clip.samples[8]);
  }
}

// Stopped for longer than a server may be silent, and a server waits.
TEST(StoppedProcess, ReadsOnWhenItIsContinued) {
  const TempFolder folder;
  const Clip clip = MakeClip({.file = folder / "a", .pictures = 40});
  std::array<int, 2> orders{}, answers{};
  ASSERT_EQ(::pipe2(orders.data(), O_CLOEXEC), 0);
  ASSERT_EQ(::pipe2(answers.data(), O_CLOEXEC), 0);
  const pid_t reader = ::fork();
  if (reader == 0) {
    ::close(orders[1]);
    SourceUnderTest source;
    source.timeoutMs = 400;
    uint16_t port = 0;
    bool isOpen = false;
    for (size_t number = 0; ::read(orders[0], &port, sizeof port) == sizeof port; ++number) {
      const std::string error = ErrorOf([&] {
        if (!isOpen)
          source.Init(port);
        isOpen = true;
        if (AllBytes(source.Read(static_cast<int64_t>(number))) != clip.samples[number])
          throw qel::QELRuntimeError("other bytes");
      });
      ::write(answers[1], (error + '\n').c_str(), error.size() + 1);
    }
    ::_exit(0);
  }
  ::close(answers[1]);
  FaultyServer server;
  server.SetTrack(1, clip.file);
  const auto order = [&] {
    const uint16_t port = server.Port();
    ::write(orders[1], &port, sizeof port);
  };
  const auto answer = [&] {
    std::string text;
    for (char c = 0; ::read(answers[0], &c, 1) == 1 && c != '\n';)
      text += c;
    return text;
  };
  // The first one while it opens the track.
  for (const bool isCut : {true, false, true}) {
    Fault fault{.stall = {{Part::Body, 100}}};
    if (isCut)
      fault.cut = fault.stall;
    const uint64_t before = server.RequestCount();
    server.SetFault(fault, 1);
    order();
    while (server.RequestCount() == before)
      std::this_thread::sleep_for(1ms);
    ::kill(reader, SIGSTOP);
    ::waitpid(reader, nullptr, WUNTRACED);
    if (isCut)
      server.ReleaseStalls();
    std::this_thread::sleep_for(550ms);
    ::kill(reader, SIGCONT);
    if (!isCut) {
      std::this_thread::sleep_for(100ms);  // has looked at the clock
      server.ReleaseStalls();
    }
    EXPECT_EQ(answer(), "") << isCut;
  }
  ::close(orders[1]);
  ::waitpid(reader, nullptr, 0);
}

// Neither of two answers comes before both are asked for: as much as a far server can show.
TEST_F(Faults, WhatAnIndexTakesIsAskedForAtOnce) {
  const auto answerTwoTogether = [this] {
    auto second = std::make_shared<std::promise<void>>();
    server.SetFaults([second, asked = 0](uint64_t) mutable {
      if (++asked == 2)
        second->set_value();
      return asked <= 2 ? Fault{.stall = {{Part::Header, 0}}} : Fault{};
    });
    return std::jthread([this, isThere = second->get_future()] {
      isThere.wait_for(10s);
      server.ReleaseStalls();
    });
  };
  {
    const auto release = answerTwoTogether();
    SourceUnderTest source;
    source.Init(server.Port());
    EXPECT_EQ(server.RequestCount(), 2);
    EXPECT_EQ(AllBytes(source.Read(8)), clip.samples[8]);
  }

  auto bytes = ReadFile(clip.file);
  bytes.resize(1 << 20);
  WriteFile(folder / "long", bytes);
  server.SetTrack(4, folder / "long");
  qel::HttpClient client(qel::StorageAddress("127.0.0.1", server.Port(), ""),
                         {5s, 5s, 5s, 20s, 0, 5s});
  qel::HttpFile file(client, 4);
  file.Open(true);
  std::vector<uint8_t> read(60'000);
  std::vector<qel::FilePart> parts;  // in the head, across its end, behind it, and in the end
  for (const int64_t offset : {0, 10'000, 20'000, 1'000'000})
    parts.push_back({offset, std::span(read).subspan(parts.size() * 15'000, 15'000)});
  const auto release = answerTwoTogether();
  file.ReadAll(parts);
  for (const auto& [offset, part] : parts)
    EXPECT_TRUE(std::equal(part.begin(), part.end(), bytes.begin() + offset)) << offset;
}

TEST_F(Faults, LastBytesThatTheServerDoesNotGiveAreAskedForByTheirPlace) {
  for (const Fault& fault : {Fault{.ignoreRange = true}, Fault{.status = 416}, Fault{.status = 501},
                             Fault{.contentRange = "bytes 0-9/99999"}, Fault{.bodyExcess = -1},
                             Fault{.etag = "\"other\""}, Fault{.cut = {{Part::Body, 99}}}}) {
    Fault ofLast = fault;
    ofLast.ofLastBytes = true;
    server.SetFault(ofLast);
    SourceUnderTest source;
    source.Init(server.Port());
    EXPECT_EQ(AllBytes(source.Read(39)), clip.samples[39]);
  }
}

// The middle of a file that a hostile index points into, byte by byte.
TEST_F(Faults, AnIndexTakesNoMoreRequestsAndTimeThanAllowed) {
  WriteFile(folder / "zeros", std::vector<uint8_t>(1 << 20));
  server.SetTrack(4, folder / "zeros");
  const auto errorOf = [&](const qel::HttpLimits& limits) {
    qel::HttpClient client(qel::StorageAddress("127.0.0.1", server.Port(), ""), limits);
    qel::HttpFile file(client, 4);
    file.Open(true);
    std::array<uint8_t, 1> byte{};
    return ErrorOf([&] {
      for (int i = 0; i < 2 * qel::kMaxIndexRequests; ++i)
        file.ReadAt(500'000 + i, byte);
    });
  };
  EXPECT_THAT(errorOf({5s, 5s, 5s, 60s, 0, 5s}), HasSubstr("more than the 1024 requests"));
  EXPECT_EQ(server.RequestCount(), qel::kMaxIndexRequests);

  server.SetFault({.stall = {{Part::Header, 0}}, .late = 60ms});
  EXPECT_THAT(errorOf({5s, 5s, 5s, 200ms, 0, 5s}), HasSubstr("longer than the 200 ms"));
}

// A server's validator is compared, and goes back to it only if it may stand in a header.
TEST(HttpResponse, SendsBackNothingThatIsNoValidator) {
  const std::string date = "Sun, 06 Nov 1994 08:49:37 GMT";
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"\"a-!~\xc3\xa9\"", date, "If-Match: \"a-!~\xc3\xa9\""},
      {"W/\"a\"", date, ""},
      {"a", date, ""},
      {"\"a\"b\"", date, ""},
      {"\"a\x1b\"", date, ""},
      {"\"a\nX: y\"", date, ""},
      {"\"" + std::string(300, 'a') + "\"", date, ""},
      {"", date, "If-Unmodified-Since: " + date},
      {"", date + "\x1b", ""},
      {"", "", ""}};
  for (const auto& [etag, lastModified, expected] : cases)
    EXPECT_EQ((qel::FileVersion{1, etag, lastModified}.Precondition()), expected) << etag;
}

const qel::TrackIndex* IndexOf(const SourceUnderTest& source) {
  const auto info = source.media->GetDefinedOutput("")->GetVideoInfoList().at(0);
  return dynamic_cast<const qel::TrackInfo&>(*info).Index().get();
}

TEST_F(Faults, OnlyAStrongValidatorLetsSourcesShareAnIndex) {
  const std::string date = "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n";
  const std::pair<Fault, bool> cases[] = {{{}, true},
                                          {{.etag = "W/\"a\""}, false},
                                          {{.etag = "a"}, false},
                                          {{.headerLines = date, .etag = ""}, false},
                                          {{.etag = ""}, false}};
  for (const auto& [fault, isShared] : cases) {
    server.SetFault(fault);
    SourceUnderTest first, second;
    first.Init(server.Port());
    second.Init(server.Port());
    EXPECT_EQ(IndexOf(first) == IndexOf(second), isShared) << fault.etag.value_or("as it is");
  }
}

// Two files of the same size, whatever validator the server gives.
TEST_F(Faults, AFileReplacedInASequenceIsNoticedAndNeverMixed) {
  Clip other = clip;
  other.file = folder / "b";
  auto bytes = ReadFile(clip.file);
  for (auto& sample : other.samples) {
    const auto at = std::search(bytes.begin(), bytes.end(), sample.begin(), sample.end());
    at[100] ^= 1;
    sample[100] ^= 1;
  }
  WriteFile(other.file, bytes);
  const std::pair<const char*, std::array<Fault, 2>> validators[] = {
      {"strong ETag", {{{}, {}}}},
      {"weak ETag", {{{.etag = "W/\"1\""}, {.etag = "W/\"2\""}}}},
      {"Last-Modified",
       {{{.headerLines = "Last-Modified: Sun, 06 Nov 1994 08:49:37 GMT\r\n", .etag = ""},
         {.headerLines = "Last-Modified: Sun, 06 Nov 1994 08:49:38 GMT\r\n", .etag = ""}}}}};
  for (const auto& [name, faults] : validators) {
    SCOPED_TRACE(name);
    server.SetTrack(1, clip.file);
    server.SetFault(faults[0]);
    Host host(server.Port(), 5000);
    for (int64_t number = 0; number < 10; ++number)
      ExpectServed(host, 1, number);
    server.SetTrack(1, other.file);
    server.SetFault(faults[1]);
    bool isNew = false;  // samples of the old file may be on their way
    for (size_t number = 10; number < 40; ++number) {
      const Answer answer = host.Order(1, static_cast<int64_t>(number));
      isNew = isNew || answer.bytes != clip.samples[number];
      ASSERT_EQ(answer.bytes, (isNew ? other : clip).samples[number]) << answer.error;
    }
    EXPECT_TRUE(isNew);
    EXPECT_EQ(host.Order(1, 3).bytes, other.samples[3]);
  }
}

TEST_F(Faults, AReplacedFileIsReadAgain) {
  const Clip other =
      MakeClip({.file = folder / "b", .container = Container::Mov, .pictures = 20, .quality = 50});
  SourceUnderTest source;
  source.Init(server.Port());
  EXPECT_EQ(AllBytes(source.Read(4)), clip.samples[4]);
  server.SetTrack(1, other.file);
  EXPECT_EQ(AllBytes(source.Read(5)), other.samples[5]);
  EXPECT_EQ(source.media->GetDefinedOutput("")->GetVideoInfoList().at(0)->GetSampleCount(), 20);
  EXPECT_EQ(AllBytes(source.media->GetSample()), other.samples[6]);
  EXPECT_EQ(source.Read(30), nullptr);

  // Another validator with each answer: there is no version to be had.
  source.Read(1);
  server.SetFaults(
      [](uint64_t request) { return Fault{.etag = '"' + std::to_string(request) + '"'}; });
  EXPECT_THAT(ErrorOf([&] { source.Read(9); }), HasSubstr("replaced"));
  server.SetFaults({});
  source.Update("track_id", 1);
  EXPECT_EQ(AllBytes(source.Read(9)), other.samples[9]);
}

}  // namespace
}  // namespace Moravel::Test
