#include <gmock/gmock.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "PlayerRun.h"
#include "support/ClipMaker.h"

// The built program as a storage server, played from by another one.
namespace Moravel::Test {
namespace {

using ::testing::HasSubstr;

constexpr const char* kFree[] = {"--address", "127.0.0.1", "--port", "0"};

// "serve" in another process, until the end of the scope.
class Serving {
 public:
  // Returns when it has told its tracks.
  Serving(std::vector<std::string> arguments, size_t tracks) : run_(Whole(std::move(arguments))) {
    std::string text;
    for (size_t lines = 0; lines < tracks + 3; lines += text.ends_with('\n')) {
      const std::string byte = run_.Read(1);
      if (byte.empty())
        break;
      text += byte;
    }
    std::istringstream lines(text.substr(std::min(text.size(), text.find("FILE\n") + 5)));
    for (std::string track, file; lines >> track && std::getline(lines >> std::ws, file);)
      trackOf[std::filesystem::path(file).filename()] = track;
  }
  // The exit code after the signal.
  int End(int signal) {
    run_.Signal(signal);
    return run_.Wait();
  }
  std::string Errors() const { return run_.Errors(); }

  std::map<std::string, std::string> trackOf;  // the argument to play it, by its file's name

 private:
  static std::vector<std::string> Whole(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "serve");
    arguments.insert(arguments.end(), std::begin(kFree), std::end(kFree));
    return arguments;
  }

  PlayerRun run_;
};

int PicturesOf(const std::string& track, int exitCode = 0) {
  PlayerRun run({track, "--json", "--quiet", "--log-level", "none"});
  const auto json = nlohmann::json::parse(run.Read());
  EXPECT_EQ(run.Wait(), exitCode) << run.Errors();
  return exitCode == 0 ? json["tracks"][0]["sizes"][0]["pictures"].get<int>() : 0;
}

TEST(Serve, ServesFilesAndFoldersUntilASignal) {
  const TempFolder folder;
  std::filesystem::create_directory(folder / "media");
  const std::map<std::string, int> pictures = {{"1", 3}, {"b.AVI", 4}, {"7", 5}, {"x y.mov", 6}};
  for (const auto& [name, count] : pictures)
    MakeClip({.file = folder / "media" / name, .pictures = count});
  std::ofstream(folder / "media" / "notes.txt") << "not a clip";
  MakeClip({.file = folder / "other", .pictures = 2});
  for (const int signal : {SIGINT, SIGTERM}) {
    Serving serving({folder / "media", folder / "other", "-v"}, 5);
    ASSERT_EQ(serving.trackOf.size(), 5u);
    EXPECT_THAT(serving.trackOf["7"], ::testing::EndsWith(":T7"));
    EXPECT_THAT(serving.trackOf["b.AVI"], ::testing::EndsWith(":T2")) << "1 is taken";
    for (const auto& [name, count] : pictures)
      EXPECT_EQ(PicturesOf(serving.trackOf[name]), count) << name;
    EXPECT_EQ(PicturesOf(serving.trackOf["other"]), 2);
    EXPECT_EQ(serving.End(signal), 0);
    EXPECT_THAT(serving.Errors(), HasSubstr("GET /tracks/7  bytes=0-"));
  }
}

TEST(Serve, IsABadNetworkOnDemand) {
  const TempFolder folder;
  const std::string clip = MakeClip({.file = folder / "clip.avi"}).file;
  const std::pair<std::vector<std::string>, int> cases[] = {
      {{"--rate", "1", "--delay", "5"}, 0}, {{"--drop", "100"}, 3}, {{"--truncate", "100"}, 3}};
  for (const auto& [options, exitCode] : cases) {
    std::vector<std::string> arguments = options;
    arguments.push_back(clip);
    Serving serving(arguments, 1);
    EXPECT_EQ(PicturesOf(serving.trackOf["clip.avi"], exitCode), exitCode == 0 ? 10 : 0);
    EXPECT_EQ(serving.End(SIGTERM), 0);
  }
}

TEST(Serve, TellsWhatItCannotServe) {
  const TempFolder folder;
  const std::string clip = MakeClip({.file = folder / "clip.avi"}).file;
  std::filesystem::create_directory(folder / "empty");
  Serving half({clip, folder / "nowhere.avi"}, 1);
  EXPECT_EQ(half.End(SIGTERM), 3);
  EXPECT_THAT(half.Errors(), HasSubstr("nowhere.avi: No such file"));
  const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
      {{}, 2, "PATH"},
      {{""}, 2, "must not be empty"},
      {{folder / "empty"}, 2, "no AVI or MOV file"},
      {{clip, "--rate", "fast"}, 2, "--rate"},
      {{clip, "--drop", "101"}, 2, "--drop"},
      {{"/dev/null"}, 3, "/dev/null: Not a regular file"},
      {{clip, "--address", "nowhere"}, 3, "'nowhere'"}};
  for (const auto& [options, exitCode, named] : cases) {
    std::vector<std::string> arguments = options;
    arguments.insert(arguments.begin(), "serve");
    PlayerRun run(arguments);
    EXPECT_EQ(run.Wait(), exitCode);
    EXPECT_THAT(run.Errors(), HasSubstr(named));
  }
}

}  // namespace
}  // namespace Moravel::Test
