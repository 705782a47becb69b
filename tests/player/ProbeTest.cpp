#include <gmock/gmock.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "PlayerRun.h"
#include "support/ClipMaker.h"
#include "support/FaultyServer.h"

// What the built program tells of tracks.
namespace Moravel::Test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

class Probe : public ::testing::Test {
 protected:
  Clip Make(const std::string& name, ClipSpec spec = {}) {
    spec.file = folder_ / name;
    return MakeClip(spec);
  }
  std::string Run(std::vector<std::string> arguments, int exitCode = 0) {
    arguments.insert(arguments.begin(), "probe");
    PlayerRun run(arguments);
    std::string output = run.Read();
    EXPECT_EQ(run.Wait(), exitCode) << run.Errors();
    errors_ = run.Errors();
    return output;
  }
  nlohmann::json RunJson(std::vector<std::string> arguments, int exitCode = 0) {
    arguments.push_back("--json");
    auto json = nlohmann::json::parse(Run(arguments, exitCode));
    EXPECT_EQ(json["exit_code"], exitCode);
    return json;
  }
  // Writes over bytes of a sample.
  void Spoil(const Clip& clip, size_t number, size_t from, size_t count) {
    std::fstream stream(clip.file, std::ios::in | std::ios::out | std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(stream)), {});
    const std::vector<uint8_t>& sample = clip.samples[number];
    stream.seekp(std::streamoff(bytes.find(std::string(sample.begin(), sample.end())) + from));
    stream << std::string(count, '\xff');
  }

  TempFolder folder_;
  std::string errors_;
};

TEST_F(Probe, TellsWhatATrackIs) {
  const struct {
    std::string name;
    ClipSpec spec;
    nlohmann::json facts;
    std::string line;
  } rows[] = {
      {"a.avi",
       {.pictures = 7, .rateNumerator = 30000, .rateDenominator = 1001},
       {{"container", "AVI"},
        {"samples", 7},
        {"rate", {30000, 1001}},
        {"field_order", "progressive"}},
       "  rate          29.97 fps (30000/1001), constant\n"},
      {"b.mov",
       {.container = Container::Mov, .interlaced = true, .bottomFirst = true},
       {{"container", "MOV"}, {"width", 64}, {"height", 48}, {"field_order", "bottom_first"}},
       ", interlaced\n  fields        bottom first"},
      {"v.mov",
       {.container = Container::Mov, .pictures = 9, .variableRate = true},
       {{"variable_rate", true}, {"average_rate", {75, 4}}, {"samples", 9}, {"seconds", 12.0 / 25}},
       "  rate          variable, 18.75 fps on average (nominal 25/1)\n"}};
  std::vector<std::string> files;
  for (const auto& row : rows) {
    const Clip clip = Make(row.name, row.spec);
    files.push_back(clip.file);
    const auto track = RunJson({clip.file})["tracks"][0];
    for (const auto& [name, value] : row.facts.items())
      EXPECT_EQ(track[name], value) << row.name << ' ' << name;
    std::vector<size_t> sizes;
    for (const auto& sample : clip.samples)
      sizes.push_back(sample.size());
    EXPECT_EQ(track["sample_bytes"]["least"], *std::min_element(sizes.begin(), sizes.end()));
    EXPECT_EQ(track["sample_bytes"]["most"], *std::max_element(sizes.begin(), sizes.end()));
    EXPECT_EQ(track["problems"].size(), row.spec.variableRate ? 1u : 0u) << track["problems"];
    EXPECT_EQ(track["scan"], nullptr);
  }
  files.insert(files.begin() + 1, folder_ / "nowhere.avi");
  const std::string text = Run(files, 3);
  for (const auto& row : rows)
    EXPECT_THAT(text, AllOf(HasSubstr(row.name + "\n  container"), HasSubstr(row.line)));
  EXPECT_THAT(errors_, HasSubstr("nowhere.avi: no such file"));
}

TEST_F(Probe, ReadsNoMoreThanTheIndexAndThePictureInFront) {
  Player::StorageServer server{{}};
  const Clip clip = Make("a.avi", {.width = 320, .height = 240, .pictures = 200});
  server.AddTrack(7, clip.file);
  const std::string track = "127.0.0.1:" + std::to_string(server.Port()) + ":T7";
  EXPECT_EQ(RunJson({track})["tracks"][0]["samples"], 200);
  EXPECT_LT(server.BytesRequested(), std::filesystem::file_size(clip.file) / 9);
  EXPECT_EQ(RunJson({"--scan", track})["tracks"][0]["scan"]["samples_read"], 200);
}

TEST_F(Probe, ListsThePicturesThatAreNotGood) {
  for (const bool interlaced : {false, true}) {
    const Clip clip = Make("a.avi", {.pictures = 40, .interlaced = interlaced});
    EXPECT_THAT(Run({"--scan", clip.file}), HasSubstr("40 samples read, all good\n"));
    for (const size_t number : {3, 4, 5})
      Spoil(clip, number, 0, 40);
    const size_t end = clip.samples[30].size();
    Spoil(clip, 30, end - 60, 60);
    const auto scan = RunJson({"--scan", clip.file}, 1)["tracks"][0]["scan"];
    EXPECT_EQ(scan["samples_lost"], 4);
    ASSERT_EQ(scan["lost"].size(), 2u) << scan;
    EXPECT_THAT(scan["lost"][0]["state"], "undecodable");
    EXPECT_EQ(scan["lost"][0]["first"], 3);
    EXPECT_EQ(scan["lost"][0]["last"], 5);
    EXPECT_EQ(scan["lost"][1]["state"], "damaged");
    EXPECT_EQ(scan["lost"][1]["time"], "00:00:01:05");
    EXPECT_THAT(Run({"--scan", clip.file}, 1),
                AllOf(HasSubstr("4 are not good:\n"), HasSubstr("    #3-#5 "),
                      HasSubstr("    #30              00:00:01:05  damaged: ")));
  }
}

TEST_F(Probe, TellsWhatAServerDoesNotGive) {
  FaultyServer server;
  const Clip clip = Make("a.avi", {.pictures = 40});
  server.SetTrack(4, clip.file);
  const std::string track = "127.0.0.1:" + std::to_string(server.Port()) + ":T4";
  RunJson({track});
  // Only what comes after the opening fails.
  const auto failing = [&server, good = server.RequestCount()](const Fault& fault) {
    server.SetFaults([fault, good](uint64_t request) mutable {
      static_cast<void>(request);
      return good > 0 && good-- > 0 ? Fault{} : fault;
    });
  };
  failing({.status = 500});
  const auto scan = RunJson({"--scan", track}, 3)["tracks"][0]["scan"];
  EXPECT_EQ(scan["lost"][0]["state"], "unreadable");
  EXPECT_THAT(scan["lost"][0]["reason"], HasSubstr("500"));

  failing({.stall = Fault::Point{Fault::Part::Body, 10}});
  const uint64_t before = server.RequestCount();
  PlayerRun run({"probe", "--scan", track});
  while (server.RequestCount() == before)
    std::this_thread::yield();
  run.Signal(SIGTERM);
  EXPECT_EQ(run.Wait(), 130);
  EXPECT_THAT(run.Errors(), HasSubstr("interrupted"));
  server.ReleaseStalls();
}

}  // namespace
}  // namespace Moravel::Test
