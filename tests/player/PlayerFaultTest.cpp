#include <gmock/gmock.h>
#include <poll.h>
#include <sys/inotify.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "PlayerRun.h"
#include "elements/BuiltinElements.h"
#include "playing/OrderSchedule.h"
#include "support/ClipMaker.h"
#include "support/FaultyServer.h"
#include "tracks/TrackSource.h"

// What surrounds the player fails: its servers, its readers, its resources.
namespace Moravel::Test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class PlayerFaults : public ::testing::Test {
 protected:
  std::string MakeTrack(const std::string& name, ClipSpec spec = {}) {
    spec.file = folder_ / name;
    MakeClip(spec);
    return spec.file.string();
  }

  // The program under a shell that prepares what it runs in.
  struct Ended {
    int exitCode;
    std::string output;
  };
  static Ended UnderShell(const std::string& prepare, const std::string& arguments) {
    const std::string program =
        std::filesystem::read_symlink("/proc/self/exe").parent_path() / MORAVEL_PLAY_PROGRAM;
    const std::string command = "exec 2>&1; " + prepare + " " + program + arguments;
    FILE* const shell = ::popen(("bash -c '" + command + "'").c_str(), "r");
    std::string output;
    char part[4096];
    while (const size_t length = std::fread(part, 1, sizeof part, shell))
      output.append(part, length);
    return {WEXITSTATUS(::pclose(shell)), output};
  }
  static std::string UnderShell(const std::string& prepare, const std::string& arguments,
                                int exitCode) {
    const Ended ended = UnderShell(prepare, arguments);
    EXPECT_EQ(ended.exitCode, exitCode) << prepare << arguments << "\n" << ended.output;
    return ended.output;
  }

  TempFolder folder_;
};

// The files of a folder as they are finished.
class FilesWritten {
 public:
  explicit FilesWritten(const std::filesystem::path& folder) : events_(::inotify_init1(0)) {
    ::inotify_add_watch(events_.Get(), folder.c_str(), IN_CLOSE_WRITE | IN_MOVED_TO);
  }
  // False when it does not come in a minute.
  bool Await(const std::string& name) const {
    alignas(inotify_event) char bytes[8192];
    pollfd ready = {events_.Get(), POLLIN, 0};
    while (::poll(&ready, 1, 60'000) == 1) {
      const ssize_t count = ::read(events_.Get(), bytes, sizeof bytes);
      for (ssize_t at = 0; at < count;) {
        const auto& event = reinterpret_cast<const inotify_event&>(bytes[at]);
        if (event.len != 0 && name == event.name)
          return true;
        at += static_cast<ssize_t>(sizeof event + event.len);
      }
    }
    return false;
  }

 private:
  const Player::Descriptor events_;
};

TEST_F(PlayerFaults, ASlowServerHoldsUpNobodyAndAnInterruptEndsIt) {
  FaultyServer slow;
  slow.SetTrack(1, MakeTrack("clip.avi"));
  slow.SetFaults([](uint64_t) { return Fault{.stall = Fault::Point{Fault::Part::Header, 0}}; });
  const std::string track = "127.0.0.1:" + std::to_string(slow.Port()) + ":T1";
  std::filesystem::create_directory(folder_ / "png");
  FilesWritten written(folder_ / "png");
  PlayerRun run({track, folder_ / "clip.avi", "--png", folder_ / "png", "--quiet"});
  EXPECT_TRUE(written.Await("track2-64x48-000009.png"));
  EXPECT_EQ(run.Wait(WNOHANG), -1);  // the slow one is still being opened
  run.Signal(SIGINT);
  EXPECT_EQ(run.Wait(), 130);
}

TEST_F(PlayerFaults, AnInterruptEndsTheWaitForAReader) {
  const std::string clip = MakeTrack("clip.avi", {.width = 640, .height = 480});
  PlayerRun run({clip, "--y4m", "-", "--quiet"});
  EXPECT_EQ(run.Read(9), "YUV4MPEG2");  // more than a pipe holds is still to come
  run.Signal(SIGTERM);
  EXPECT_EQ(run.Wait(), 130);
}

TEST_F(PlayerFaults, AReportThatCannotBeWrittenIsAnError) {
  const std::string clip = " " + MakeTrack("clip.avi");
  for (const std::string& command :
       {clip + " > /dev/full", clip + " --json > /dev/full", clip + " >&-",
        clip + " --json --quiet >&-", " probe" + clip + " > /dev/full",
        " serve --port 0" + clip + " > /dev/full", " view" + clip + " > /dev/full",
        std::string(" --help > /dev/full"), std::string(" probe --help > /dev/full")}) {
    EXPECT_THAT(UnderShell("", command, 4),
                AllOf(StartsWith("moravel-play: standard output: "), HasSubstr("written")));
  }
}

TEST_F(PlayerFaults, WantOfThreadsIsOneLine) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers take more address space than the limit leaves";
#endif
  const std::string clip = " " + MakeTrack("clip.avi") + " --quiet";
  // Stacks of a quarter of the memory that there is: some threads can be made, not all.
  EXPECT_THAT(UnderShell("ulimit -v 2000000 -s 400000;", clip + " --jobs 8", 3),
              HasSubstr("thread"));
}

TEST_F(PlayerFaults, WantOfDescriptorsIsToldOfEachFile) {
  const std::string clip = " " + MakeTrack("clip.avi");
  const std::string output = UnderShell("ulimit -n 20;", clip + clip + " --quiet", 3);
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 2) << output;
  EXPECT_THAT(output, HasSubstr("too many open files (this process may have 20 descriptors"));
}

// Wherever the memory comes to its end, and whichever library finds that out.
TEST_F(PlayerFaults, WantOfMemoryIsOneLine) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers take more address space than the limit leaves";
#endif
  const std::string clip =
      " " +
      MakeTrack("clip.avi", {.width = 1280, .height = 720, .pictures = 4, .interlaced = true});
  const std::string out = " " + (folder_ / "out").string();
  // What fontconfig finds out in want of memory stays here.
  const std::string fonts = (folder_ / "fonts").string();
  WriteFile(fonts + ".conf", "<fontconfig><dir>/usr/share/fonts</dir><cachedir>" + fonts +
                                 "</cachedir></fontconfig>");
  int ends = 0;
  for (const std::string& arguments :
       {clip + " --quiet --png" + out, clip + " --quiet --frames --contact-sheet" + out + ".png",
        clip + " --quiet --jpeg" + out, " probe --scan" + clip + " > /dev/null"}) {
    for (int megabytes = 70; megabytes <= 220; megabytes += 50) {
      const std::string limit = "export FONTCONFIG_FILE=" + fonts + ".conf; ulimit -v " +
                                std::to_string(megabytes * 1000) + ";";
      const auto [exitCode, output] = UnderShell(limit, arguments);
      if (exitCode == 0)
        continue;
      ++ends;
      EXPECT_EQ(exitCode, 3) << limit << arguments;
      EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 1) << limit << output;
      EXPECT_THAT(output, ::testing::AnyOf(HasSubstr("memory"), HasSubstr("thread")));
    }
  }
  EXPECT_GT(ends, 0);
}

// Ten million samples of one size that are not there: told as one range, in no memory of their own.
TEST_F(PlayerFaults, WhatAFileAnnouncesTakesNoMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers take more address space than the limit leaves";
#endif
  const std::string file = MakeTrack("clip.mov", {.container = Container::Mov, .pictures = 1});
  std::string mov = ReadFile<std::string>(file);
  mov.replace(mov.find("stsz") + 8, 8, std::string("\0\0\4\0\0\x98\x96\x80", 8));
  mov.replace(mov.find("elst"), 4, "free");
  mov.replace(mov.find("stsc") + 16, 4, std::string("\0\x98\x96\x80", 4));
  WriteFile(file, mov);
  const std::string output =
      UnderShell("export MALLOC_ARENA_MAX=1; ulimit -v 190000;", " probe --scan --json " + file, 3);
  const auto track = nlohmann::json::parse(output)["tracks"][0];
  EXPECT_EQ(track["samples"], 10'000'000);
  EXPECT_EQ(track["sample_bytes"]["p99"], 1024);
}

// Neither does it say anything of the server, which would be given up after ten failures in a row.
TEST_F(PlayerFaults, AFaultOfTheFileIsNotWaitedFor) {
  const std::string file = MakeTrack(
      "clip.mov",
      {.container = Container::Mov, .pictures = 40, .padding = 1000, .headerFirst = true});
  std::filesystem::resize_file(file, std::filesystem::file_size(file) / 2);
  PlayerRun run({file, "--json", "--quiet"});
  const auto track = nlohmann::json::parse(run.Read())["tracks"][0];
  EXPECT_EQ(run.Wait(), 3);
  EXPECT_GT(track["errors"], 12);
  EXPECT_EQ(track["missing"], 0);
  EXPECT_EQ(track["preloaded"].get<int>() + track["errors"].get<int>(), 40);
  EXPECT_THAT(run.Errors(), HasSubstr("unreadable: the file is truncated"));
}

TEST_F(PlayerFaults, OrdersAreHeldBackByWindowAndMemory) {
  qel::RegisterBuiltinElements();
  Player::StorageServer server{Player::StorageServer::Options()};
  server.AddTrack(1, MakeTrack("clip.avi"));
  const Play::NamedTrack named = {1, "clip", {{"127.0.0.1", server.Port()}, 1}};
  Play::TrackSource source;
  source.Select(named.id);
  Play::Track facts = Play::DescribeTrack(named, source.Media()->GetDefinedOutput(""));
  facts.sequence = Play::PlaySequence(0, 10, Play::Order::Forward);
  const int64_t three = facts.BytesOf(0) + facts.BytesOf(1) + facts.BytesOf(2);
  const std::pair<int64_t, size_t> cases[] = {{1, 1}, {three, 3}, {three - 1, 2}, {1 << 30, 4}};
  for (const auto& [bytes, orders] : cases) {
    Play::PlayingTrack track(facts, nullptr, nullptr);
    Play::OrderSchedule schedule({.waitingBytes = bytes}, 1);
    schedule.Add(0, std::nullopt, 4, track);
    const auto next = [&] {
      return schedule.Next(0, 0, Play::OrderSchedule::Patience::DoNotWait, {});
    };
    std::vector<Play::Job> jobs;
    while (const auto job = next())
      jobs.push_back(*job);
    ASSERT_EQ(jobs.size(), orders) << bytes;
    for (const Play::Job& job : jobs)
      schedule.Release(job);
    EXPECT_TRUE(next());
  }
}

}  // namespace
}  // namespace Moravel::Test
