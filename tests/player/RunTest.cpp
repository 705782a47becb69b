#include <cairo.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <list>
#include <nlohmann/json.hpp>
#include <numeric>

#include "PlayerRun.h"
#include "storage-server/StorageServer.h"
#include "support/ClipMaker.h"
#include "support/FaultyServer.h"

// The built program, run as its users run it.
namespace Moravel::Test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ContainsRegex;
using ::testing::Each;
using ::testing::EndsWith;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr int kUsage = 2, kUnreadable = 3, kUnwritable = 4, kInterrupted = 130;

int Lines(const std::string& text) {
  return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

// A picture file.
struct Png {
  explicit Png(const std::filesystem::path& file) {
    cairo_surface_t* const surface = cairo_image_surface_create_from_png(file.c_str());
    width = cairo_image_surface_get_width(surface);
    height = cairo_image_surface_get_height(surface);
    for (int i = 0; i < width * height; ++i) {
      const uint8_t* const pixel = cairo_image_surface_get_data(surface) + i % width * 4 +
                                   i / width * cairo_image_surface_get_stride(surface);
      colours.insert(colours.end(), pixel, pixel + 3);
      luma.push_back(uint8_t((114 * pixel[0] + 587 * pixel[1] + 299 * pixel[2]) / 1000));
    }
    cairo_surface_destroy(surface);
  }

  int Number() const { return ReadPictureNumber(luma.data(), width, width, height); }

  std::vector<uint8_t> colours, luma;
  int width, height;
};

// A stream of raw pictures: its header, and the number in each picture.
struct Y4m {
  explicit Y4m(const std::string& bytes, int width, int height) {
    size_t at = bytes.find('\n') + 1;
    header = bytes.substr(0, at);
    const int chroma = ((width + 1) / 2) * ((height + 1) / 2);
    const auto size = static_cast<size_t>(width * height + 2 * chroma);
    while (bytes.compare(at, 6, "FRAME\n") == 0 && bytes.size() >= at + 6 + size) {
      numbers.push_back(ReadPictureNumber(reinterpret_cast<const uint8_t*>(bytes.data()) + at + 6,
                                          width, width, height));
      at += 6 + size;
    }
    bytesLeft = bytes.size() - at;
  }

  std::string header;
  std::vector<int> numbers;
  size_t bytesLeft;
};

std::vector<int> Range(int first, int count) {
  std::vector<int> numbers(static_cast<size_t>(count));
  std::iota(numbers.begin(), numbers.end(), first);
  return numbers;
}

// A track of a server that is no longer there.
std::string DeadTrack() {
  const Player::StorageServer server{Player::StorageServer::Options()};
  return "127.0.0.1:" + std::to_string(server.Port()) + ":T1";
}

class Run : public ::testing::Test {
 protected:
  std::string MakeTrack(const std::string& name, ClipSpec spec = {}) {
    spec.file = folder_ / name;
    clip_ = MakeClip(spec);
    return spec.file.string();
  }

  // What a whole run writes.
  std::string Play(const std::vector<std::string>& arguments, int exitCode = 0) {
    PlayerRun run(arguments);
    std::string output = run.Read();
    const int code = run.Wait();
    errors_ = run.Errors();
    EXPECT_EQ(code, exitCode) << errors_;
    return output;
  }

  nlohmann::json PlayJson(std::vector<std::string> arguments, int exitCode) {
    arguments.insert(arguments.end(), {"--json", "--quiet"});
    const auto json = nlohmann::json::parse(Play(arguments, exitCode));
    EXPECT_EQ(json["exit_code"], exitCode);
    return json;
  }

  Y4m PlayY4m(std::vector<std::string> arguments, int width, int height) {
    arguments.insert(arguments.end(), {"--y4m", "-", "--quiet"});
    const Y4m video(Play(arguments), width, height);
    EXPECT_EQ(video.bytesLeft, 0u);
    return video;
  }

  TempFolder folder_;
  Clip clip_;
  std::string errors_;
};

TEST_F(Run, WrongInputGetsOneLineAndItsExitCode) {
  const std::string clip = MakeTrack("clip.avi");
  const std::string text = folder_ / "text.avi";
  std::ofstream(text) << "not a picture in sight";
  std::ofstream(folder_ / "empty.avi");
  const std::string dead = DeadTrack();
  const Player::StorageServer live{Player::StorageServer::Options()};
  const std::string unknown = "127.0.0.1:" + std::to_string(live.Port()) + ":T9";
  const struct {
    std::vector<std::string> arguments;
    int exitCode;
    std::string named;
  } cases[] = {
      {{}, kUsage, "TRACK"},
      {{clip, "--size", "big"}, kUsage, "--size big"},
      {{clip, "--start", "7"}, kUsage, "clip.avi"},
      {{folder_ / "nowhere.avi"}, kUnreadable, "nowhere.avi: no such file"},
      {{folder_.Path()}, kUnreadable, "regular file"},
      {{text}, kUnreadable, "text.avi"},
      {{folder_ / "empty.avi"}, kUnreadable, "empty.avi"},
      {{dead}, kUnreadable, dead},
      {{unknown}, kUnreadable, unknown},
      {{clip, "--png", text + "/x"}, kUnwritable, "text.avi/x"},
      {{clip, "--contact-sheet", folder_ / "no/sheet.png"}, kUnwritable, "no/sheet.png"},
      {{clip, "--contact-sheet", std::string(60'000, 'x')}, kUnwritable, "xxx [...] xxx"},
      {{std::string(60'000, 'x')}, kUnreadable, "xxx: cannot be read: File name too long"},
      {{clip, "--y4m", folder_ / "no/clip.y4m"}, kUnwritable, "no/clip.y4m"},
      {{clip, "--y4m", "/dev/full", "--quiet"}, kUnwritable, "No space"},
      {{clip, "--contact-sheet", "/dev/full", "--quiet"}, kUnwritable, "No space"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(Play(test.arguments, test.exitCode), "");
    EXPECT_EQ(Lines(errors_), 1) << errors_;
    EXPECT_THAT(errors_, AllOf(StartsWith("moravel-play: "), HasSubstr(test.named)));
  }
}

TEST_F(Run, NeverWritesOverATrackOrTwiceToOneFile) {
  const std::string clip = MakeTrack("clip.avi"), other = MakeTrack("track1-64x48-000000.png");
  const auto bytes = ReadFile(clip);
  const auto link = [&](const char* name, const std::string& target) {
    std::filesystem::create_symlink(target, folder_ / name);
    return folder_ / name;
  };
  std::filesystem::create_hard_link(clip, folder_ / "hard.png");
  const std::string fresh = folder_ / "fresh.png", dangling = link("dangling.png", fresh);
  const std::vector<std::string> cases[] = {
      {clip, "--contact-sheet", folder_ / "./clip.avi"},
      {clip, "--contact-sheet", folder_ / "hard.png"},
      {"--contact-sheet", clip, other},
      {"--y4m", other, clip},
      {clip, "--y4m", link("soft.png", clip)},
      {clip, "--y4m", fresh, "--contact-sheet", fresh},
      {clip, "--y4m", fresh, "--contact-sheet", dangling},
      {clip, "--y4m", "-", "--contact-sheet", "/dev/stdout"},
      {clip, "--json", "--contact-sheet", "/proc/self/fd/1"},
      {other, "--png", folder_.Path()},
      {clip, "--png", folder_.Path(), "--y4m", folder_ / "track1-64x48-000001.png"},
  };
  for (std::vector<std::string> arguments : cases) {
    Play(arguments, kUsage);
    EXPECT_EQ(Lines(errors_), 1) << errors_;
    EXPECT_FALSE(std::filesystem::exists(fresh));
  }
  Play({clip, "--quiet", "--y4m", "/dev/null", "--contact-sheet", "/dev/null"});
  std::filesystem::create_directory(folder_ / "png");
  link("png/track1-64x48-000000.png", clip);
  Play({clip, "--png", folder_ / "png"});
  EXPECT_EQ(Png(folder_ / "png/track1-64x48-000000.png").Number(), 0);
  EXPECT_EQ(ReadFile(clip), bytes);
}

TEST_F(Run, PlaysSeveralTracksInSeveralSizes) {
  const std::string a = MakeTrack("a.avi");
  const std::string b = MakeTrack("b.mov", {.container = Container::Mov, .pictures = 7});
  const auto json = PlayJson({a, b, "--size", "32x24", "--size", "64x48", "--png", folder_ / "png",
                              "--jobs", "3", "--window", "2"},
                             0);
  ASSERT_EQ(json["tracks"].size(), 2u);
  for (const auto& [track, samples] : {std::pair(0, 10), std::pair(1, 7)}) {
    const auto& report = json["tracks"][static_cast<size_t>(track)];
    EXPECT_EQ(report["preloaded"], samples);
    EXPECT_EQ(report["missing"], 0);
    EXPECT_GT(report["bytes"], 0);
    for (const auto& size : report["sizes"]) {
      EXPECT_EQ(size["pictures"], samples);
      EXPECT_EQ(size["damaged"], 0);
    }
    for (int number = 0; number < samples; ++number) {
      const std::string name = "-00000" + std::to_string(number) + ".png";
      const std::string stem = folder_ / ("png/track" + std::to_string(track + 1));
      EXPECT_EQ(Png(stem + "-64x48" + name).Number(), number);
      EXPECT_EQ(Png(stem + "-32x24" + name).width, 32);
    }
  }
  EXPECT_EQ(errors_, "");
}

TEST_F(Run, WritesRawVideoInTheOrderOfPlay) {
  const std::string clip = MakeTrack("clip.avi", {.width = 65, .height = 47, .pictures = 40});
  std::vector<int> reverse = Range(0, 40);
  std::reverse(reverse.begin(), reverse.end());
  const std::pair<std::vector<std::string>, std::vector<int>> cases[] = {
      {{clip, "--jobs", "8"}, Range(0, 40)},
      {{clip, "--start", "0.4", "--count", "5"}, Range(10, 5)},
      {{clip, "--start", "1", "--duration", "0.2", "--window", "1"}, Range(25, 5)},
      {{clip, "--order", "reverse"}, reverse}};
  for (const auto& [arguments, numbers] : cases) {
    const Y4m video = PlayY4m(arguments, 65, 47);
    EXPECT_EQ(video.header, "YUV4MPEG2 W65 H47 F25:1 Ip A1:1 C420jpeg XCOLORRANGE=FULL\n");
    EXPECT_EQ(video.numbers, numbers);
  }
  const std::vector<int> random = PlayY4m({clip, "--order", "random"}, 65, 47).numbers;
  EXPECT_NE(random, Range(0, 40));
  EXPECT_THAT(random, ::testing::UnorderedElementsAreArray(Range(0, 40)));
}

TEST_F(Run, PlaysEachSampleOfAVariableRateOnce) {
  std::string file;
  for (const auto& [name, container] :
       {std::pair("clip.avi", Container::Avi), std::pair("clip.mov", Container::Mov)}) {
    file = MakeTrack(name, {.container = container, .pictures = 20, .variableRate = true});
    for (const char* order : {"forward", "reverse", "random"})
      EXPECT_THAT(PlayY4m({file, "--order", order}, 64, 48).numbers,
                  ::testing::UnorderedElementsAreArray(Range(0, 20)))
          << name << " " << order;
  }
  // One begins when the next one does: behind the type, version and count of the durations' table
  // stand pairs of a count and a duration.
  auto bytes = ReadFile(file);
  const std::string type = "stts";
  const auto table = std::search(bytes.begin(), bytes.end(), type.begin(), type.end());
  const int shortest = table[15];
  std::fill_n(table + 24, 4, uint8_t{0});
  WriteFile(file, bytes);
  for (const char* order : {"forward", "reverse", "random"}) {
    const auto json = PlayJson({file, "--order", order}, 1);
    EXPECT_EQ(json["tracks"][0]["preloaded"], 19) << order;
    EXPECT_EQ(json["tracks"][0]["sizes"][0]["pictures"], 19) << order;
    EXPECT_EQ(json["tracks"][0]["losses"][0]["first"], shortest) << order;
    EXPECT_EQ(Lines(errors_), 1) << errors_;
    EXPECT_THAT(errors_, HasSubstr("missing: the track shows it for no time"));
  }
}

TEST_F(Run, ShowsTheFieldsOfInterlacedTracks) {
  for (const bool bottomFirst : {false, true}) {
    const std::string clip =
        MakeTrack("fields.avi", {.interlaced = true, .bottomFirst = bottomFirst});
    const Y4m both = PlayY4m({clip, "--fields"}, 64, 24);
    EXPECT_EQ(both.header, "YUV4MPEG2 W64 H24 F50:1 Ip A1:2 C420jpeg XCOLORRANGE=FULL\n");
    std::vector<int> numbers = Range(0, 20);  // top fields even, in order of time
    for (size_t i = 0; bottomFirst && i < numbers.size(); i += 2)
      std::swap(numbers[i], numbers[i + 1]);
    EXPECT_EQ(both.numbers, numbers);
    std::reverse(numbers.begin(), numbers.end());
    EXPECT_EQ(PlayY4m({clip, "--fields", "--order", "reverse"}, 64, 24).numbers, numbers);
    const Y4m top = PlayY4m({clip, "--count", "2"}, 64, 24);
    EXPECT_EQ(top.header, "YUV4MPEG2 W64 H24 F25:1 Ip A1:2 C420jpeg XCOLORRANGE=FULL\n");
    EXPECT_EQ(top.numbers, (std::vector<int>{0, 2}));
    Play({clip, "--fields", "--png", folder_ / "png"});
    EXPECT_EQ(Png(folder_ / "png/track1-64x24-000003-top.png").Number(), 6);
    EXPECT_EQ(Png(folder_ / "png/track1-64x24-000003-bottom.png").Number(), 7);
    Play({clip, "--frames", "--count", "4", "--png", folder_ / "png"});
    const Png frame(folder_ / "png/track1-64x48-000003.png");
    EXPECT_EQ(frame.height, 48);
    EXPECT_EQ(ReadPictureNumber(frame.luma.data(), 128, 64, 24), 6);
    EXPECT_EQ(ReadPictureNumber(frame.luma.data() + 64, 128, 64, 24), 7);
    const std::string video = Play({clip, "--frames", "--count", "2", "--y4m", "-", "--quiet"});
    EXPECT_THAT(video, StartsWith("YUV4MPEG2 W64 H48 F25:1 Ip A1:1 "));
    EXPECT_EQ(video.size(), video.find('\n') + 1 + 2 * (6 + 64 * 48 * 3 / 2));
  }
}

// Of one sample the second field keeps its first marker alone.
TEST_F(Run, ShowsAFrameThatLacksAFieldAsDamaged) {
  const std::string file = MakeTrack("fields.avi", {.interlaced = true});
  auto bytes = ReadFile(file);
  const std::vector<uint8_t>& sample = clip_.samples[3];
  const uint8_t kStart[] = {0xFF, 0xD8};
  const auto second =
      std::search(sample.begin() + 2, sample.end(), std::begin(kStart), std::end(kStart));
  const auto at = std::search(bytes.begin(), bytes.end(), sample.begin(), sample.end());
  std::fill_n(at + (second - sample.begin()) + 2, 40, uint8_t{0xFF});
  WriteFile(file, bytes);
  const auto json = PlayJson({file, "--frames", "--size", "64x48", "--size", "32x24"}, 1);
  for (const auto& size : json["tracks"][0]["sizes"]) {
    EXPECT_EQ(size["pictures"], 10);
    EXPECT_EQ(size["damaged"], 1);
  }
  EXPECT_EQ(Lines(errors_), 1) << errors_;
  EXPECT_THAT(errors_, HasSubstr("sample 3 (00:00:00:03) damaged: bottom field: "));
}

TEST_F(Run, KeepsTheTracksTimeAndDropsWhatComesTooLate) {
  const std::string slow =
      MakeTrack("slow.avi", {.pictures = 4, .rateNumerator = 1, .rateDenominator = 1});
  const auto paced = PlayJson({slow, "--realtime", "--window", "1"}, 0);
  EXPECT_EQ(paced["tracks"][0]["verdict"]["text"], "plays at 1 fps: all pictures on time");
  EXPECT_GT(paced["seconds"], 0.2);  // the last is asked for two early

  // A fifth of the rate that its pictures need.
  Player::StorageServer server{{.network = {.bytesPerSecond = 1e5}}};
  server.AddTrack(1, MakeTrack("clip.avi", {.pictures = 20, .padding = 20'000}));
  const std::string track = "127.0.0.1:" + std::to_string(server.Port()) + ":T1";
  const auto late = PlayJson({track, "--realtime"}, 1)["tracks"][0];
  EXPECT_GT(late["dropped"], 0);
  EXPECT_EQ(late["sizes"][0]["pictures"].get<int>() + late["dropped"].get<int>(), 20);
  EXPECT_EQ(late["losses"][0]["what"], "late");
  EXPECT_EQ(late["verdict"]["limit"], "server");
  EXPECT_THAT(errors_, HasSubstr("late: dropped, as it would have come after its time"));
}

TEST_F(Run, TellsOfItselfInOneOrderForAllReaders) {
  EXPECT_THAT(Play({"--help"}),
              AllOf(StartsWith("Usage: moravel-play [COMMAND]"), HasSubstr("\nExit codes:\n")));
  EXPECT_THAT(Play({"--man-page"}), AllOf(StartsWith(".TH MORAVEL"), HasSubstr("\\-\\-jpeg")));
  const std::string script = folder_ / "completion";
  WriteFile(script, Play({"--bash-completion"}));
  EXPECT_EQ(std::system(("bash -n " + script).c_str()), 0);
}

TEST_F(Run, WritesSamplesAsTheyAreStored) {
  const std::string clip = MakeTrack("clip.avi"), folder = folder_ / "jpeg";
  const auto text = [](const std::vector<uint8_t>& bytes) {
    return std::string(bytes.begin(), bytes.end());
  };
  const auto json = PlayJson({clip, "--jpeg", folder}, 0);
  EXPECT_EQ(json["tracks"][0]["sizes"].size(), 0u);
  EXPECT_EQ(ReadFile<std::string>(folder + "/track1-000004.jpg"), text(clip_.samples[4]));

  // Without its Huffman tables, which it gets back.
  std::string bytes = ReadFile<std::string>(clip);
  const std::string sample = text(clip_.samples[4]);
  std::string tables, bare = sample;
  for (size_t at; (at = bare.find("\xff\xc4")) != std::string::npos;) {
    const size_t length = 2 + size_t(uint8_t(bare[at + 2])) * 256 + uint8_t(bare[at + 3]);
    tables += bare.substr(at, length);
    bare.erase(at, length);
  }
  bare.append(sample.size() - bare.size(), '\0');
  bytes.replace(bytes.find(sample), sample.size(), bare);
  std::ofstream(clip, std::ios::binary) << bytes;
  Play({clip, "--jpeg", folder, "--start=#4", "--count", "1"});
  const size_t scan = bare.find("\xff\xda");
  EXPECT_EQ(ReadFile<std::string>(folder + "/track1-000004.jpg"),
            bare.substr(0, scan) + tables + bare.substr(scan));

  const std::string fields = MakeTrack("fields.avi", {.interlaced = true, .bottomFirst = true});
  Play({fields, "--jpeg", folder});
  EXPECT_EQ(ReadFile<std::string>(folder + "/track1-000002-bottom.jpg") +
                ReadFile<std::string>(folder + "/track1-000002-top.jpg"),
            text(clip_.samples[2]));
}

TEST_F(Run, ShowsTheSamePictureInEveryFormat) {
  const std::string clip = MakeTrack("clip.avi", {.width = 65, .height = 47});
  const auto show = [&](const std::string& format) {
    const std::string png = folder_ / format;
    Play({clip, "--count", "1", "--format", format, "--png", png});
    return Png(png + "/track1-65x47-000000.png");
  };
  const Png reference = show("BGR3");
  for (const char* format :
       {"I420", "YV12", "I422", "YV16", "YUYV", "YVYU", "UYVY", "BGRA", "RGB3", "RGBA"}) {
    const Png png = show(format);
    ASSERT_EQ(png.colours.size(), 65u * 47 * 3) << format;
    double difference = 0;
    for (size_t i = 0; i < png.colours.size(); ++i)
      difference += std::abs(png.colours[i] - reference.colours[i]);
    EXPECT_LT(difference / double(png.colours.size()), 2.0) << format;
  }
  EXPECT_EQ(show("Y800").Number(), 0);
}

TEST_F(Run, CountsWhatIsMissingAndDamaged) {
  const std::string file = MakeTrack("clip.avi");
  auto json = PlayJson({file, "--count", "14"}, 1);
  EXPECT_EQ(json["tracks"][0]["preloaded"], 10);
  EXPECT_EQ(json["tracks"][0]["missing"], 4);

  // One picture loses its header, another one the end of its data.
  auto bytes = ReadFile(file);
  const auto find = [&](const std::vector<uint8_t>& sample) {
    return std::search(bytes.begin(), bytes.end(), sample.begin(), sample.end());
  };
  std::fill_n(find(clip_.samples[3]), 40, uint8_t{0xFF});
  std::fill_n(find(clip_.samples[7]) - 68, 60, uint8_t{0xFF});  // a chunk's header is 8 bytes
  WriteFile(file, bytes);
  json = PlayJson({file, "--size", "64x48", "--size", "32x24"}, 1);
  for (const auto& size : json["tracks"][0]["sizes"]) {
    EXPECT_EQ(size["pictures"], 9) << size;
    EXPECT_EQ(size["damaged"], 2) << size;
  }
  EXPECT_EQ(Lines(errors_), 2) << errors_;
  EXPECT_THAT(errors_, AllOf(HasSubstr("sample 3 (00:00:00:03) undecodable"),
                             HasSubstr("sample 6 (00:00:00:06) damaged")));

  // Preloaded, missing, errors; pictures, damaged.
  EXPECT_THAT(Play({file, "--count", "14"}, 1),
              AllOf(ContainsRegex(" 10 +4 +0 "), ContainsRegex(" 64x48 +9 +2 ")));

  // All are listed, and no more than some told.
  json = PlayJson({file, "--count", "70"}, 1);
  std::string losses;
  for (const auto& loss : json["tracks"][0]["losses"])
    losses += loss["what"].get<std::string>() + " " + loss["first"].dump() + "-" +
              loss["last"].dump() + " " + loss["last_time"].get<std::string>() + "; ";
  EXPECT_EQ(losses,
            "damaged 6-6 00:00:00:06; undecodable 3-3 00:00:00:03; missing 10-69 00:00:02:19; ");
  EXPECT_THAT(errors_, ContainsRegex("5[0-2] more missing"));  // the decoders tell theirs beside
  EXPECT_EQ(Lines(errors_), 11) << errors_;

  // Raw video keeps its clock, and the sheet frames what is damaged.
  const std::string sheet = folder_ / "sheet.png";
  const Y4m video(
      Play({file, "--start=#2", "--count", "10", "--y4m", "-", "--contact-sheet", sheet, "--quiet"},
           1),
      64, 48);
  EXPECT_THAT(video.numbers, AllOf(SizeIs(10), Each(Ge(2)), Contains(5)));
  EXPECT_EQ(std::pair(video.numbers[0], video.numbers[1]), std::pair(2, 2));
  EXPECT_EQ(std::pair(video.numbers[7], video.numbers[9]), std::pair(9, 9));
  EXPECT_THAT(errors_, HasSubstr("3 pictures without a picture of their own"));
  const Png png(sheet);
  std::vector<bool> framed;
  for (int cell = 0; cell < 10; ++cell) {
    const size_t above =
        size_t(122 + cell / 6 * 276) * size_t(png.width) + size_t(50 + cell % 6 * 336);
    framed.push_back(png.luma[above] > 100);
  }
  EXPECT_EQ(framed, (std::vector<bool>{0, 0, 0, 0, 1, 0, 0, 0, 0, 0}));
  Play({file, "--start=#3", "--count", "1", "--y4m", folder_ / "grey.y4m", "--quiet"}, 1);
  EXPECT_THAT(ReadFile<std::string>(folder_ / "grey.y4m"),
              EndsWith("FRAME\n" + std::string(64 * 48 * 3 / 2, '\x80')));
}

TEST_F(Run, PlaysOnBesideADeadServer) {
  const std::string dead = DeadTrack();
  const auto json = PlayJson({dead, MakeTrack("clip.avi")}, kUnreadable);
  EXPECT_EQ(json["failed_tracks"][0]["track"], dead);
  EXPECT_EQ(json["tracks"][0]["sizes"][0]["pictures"], 10);
  EXPECT_EQ(Lines(errors_), 1) << errors_;
}

// Of three servers, whose first answers to a read are 500. Random reads are one request each; the
// opening is over with the first of them.
TEST_F(Run, WaitsForAServerThatFailsAndGivesUpAfterTenFailuresInARow) {
  const std::string clip = MakeTrack("clip.avi", {.pictures = 20});
  std::list<FaultyServer> servers(3);
  std::vector<std::string> arguments;
  for (uint64_t failures : {1, 9, 10}) {
    FaultyServer& server = *std::next(servers.begin(), ptrdiff_t(arguments.size()));
    server.SetTrack(4, clip);
    arguments.push_back("127.0.0.1:" + std::to_string(server.Port()) + ":T4");
    PlayJson({arguments.back(), "--count", "1", "--order", "random"}, 0);
    const uint64_t first = 2 * server.RequestCount() - 1;
    server.SetFaults([first, failures](uint64_t request) {
      return Fault{.status = request >= first && request < first + failures ? 500 : 0};
    });
  }
  const std::vector<std::string> tracks = arguments;
  arguments.insert(arguments.end(), {"--order", "random"});
  const auto json = PlayJson(arguments, kUnreadable);
  const int counts[][3] = {{1, 19, 0}, {9, 11, 0}, {10, 0, 10}};  // errors, preloaded, missing
  for (size_t i = 0; i < tracks.size(); ++i) {
    EXPECT_EQ(json["tracks"][i]["errors"], counts[i][0]);
    EXPECT_EQ(json["tracks"][i]["preloaded"], counts[i][1]);
    EXPECT_EQ(json["tracks"][i]["missing"], counts[i][2]);
    EXPECT_THAT(errors_, ContainsRegex(tracks[i] + ": sample .* unreadable: .*500"));
  }
  EXPECT_THAT(errors_, HasSubstr(tracks[2] + ": gave up after 10 failures in a row, 10 samples"));
  EXPECT_EQ(Lines(errors_), 1 + 9 + 10 + 1) << errors_;
}

// Each cell of a sheet of one size is read like a picture.
TEST_F(Run, PutsPicturesFromAllOverTheTrackOnItsContactSheet) {
  const std::string clip = MakeTrack("clip.avi", {.pictures = 40});
  const std::string fields = MakeTrack("fields.avi", {.pictures = 40, .interlaced = true});
  const std::string sheet = folder_ / "sheet.png";
  const auto show = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--contact-sheet", sheet, "--quiet"});
    Play(arguments);
    constexpr int kLeft = 40, kTop = 124, kAcross = 336, kDown = 276, kWidth = 320, kHeight = 240;
    const Png png(sheet);
    std::vector<int> numbers;
    for (int y = kTop; y + kDown < png.height; y += kDown) {
      for (int x = kLeft; x + kWidth < png.width; x += kAcross)
        numbers.push_back(
            ReadPictureNumber(&png.luma.at(size_t(y * png.width + x)), png.width, kWidth, kHeight));
    }
    return numbers;
  };
  std::vector<int> spread, reverse, both;
  for (int cell = 0; cell < 24; ++cell) {
    spread.push_back(40 * cell / 24);
    reverse.push_back(39 - 40 * cell / 24);
    both.push_back(40 * (cell / 2) / 12 * 2 + cell % 2);
  }
  EXPECT_EQ(show({clip}), spread);
  EXPECT_EQ(show({clip, "--order", "reverse"}), reverse);
  EXPECT_EQ(show({fields, "--fields"}), both);
}

// Its pictures are more bytes than a pipe holds.
TEST_F(Run, EndsQuietlyWhenItsOutputIsClosed) {
  PlayerRun run({MakeTrack("clip.avi", {.width = 640, .height = 480}), "--y4m", "-", "--quiet"});
  EXPECT_EQ(run.Read(9), "YUV4MPEG2");
  run.CloseOutput();
  EXPECT_EQ(run.Wait(), 0);
  EXPECT_EQ(run.Errors(), "");
}

TEST_F(Run, FinishesItsReportAtTheFirstInterrupt) {
  PlayerRun run({MakeTrack("clip.avi"), "--count", "1000000000", "--y4m", "-"});
  EXPECT_EQ(run.Read(9), "YUV4MPEG2");
  run.Signal(SIGINT);
  run.Read();
  EXPECT_EQ(run.Wait(), kInterrupted);
  EXPECT_THAT(run.Errors(), HasSubstr("interrupted after"));
}

TEST_F(Run, StopsAtOnceAtTheSecondInterrupt) {
  PlayerRun run({MakeTrack("clip.avi", {.width = 640, .height = 480}), "--y4m", "-"});
  EXPECT_EQ(run.Read(9), "YUV4MPEG2");
  // The pipe is full and nobody reads it. Signals that come too fast count as one.
  while (run.Wait(WNOHANG) < 0)
    run.Signal(SIGINT);
  EXPECT_EQ(run.Wait(), kInterrupted);
}

}  // namespace
}  // namespace Moravel::Test
