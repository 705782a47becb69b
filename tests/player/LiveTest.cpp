#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <latch>

#include "command/Host.h"
#include "live/LiveEngine.h"
#include "support/ClipMaker.h"
#include "support/FaultyServer.h"
#include "support/TempFolder.h"

// The engine behind interactive use, on a server that breaks on demand.
namespace Moravel::Play {
namespace {

using Moravel::Test::Fault;
using ::testing::HasSubstr;
using State = LivePicture::State;
using Kind = LiveOrder::Kind;

constexpr int kPictures = 400;
constexpr Size kSize{64, 48};

int NumberOf(const LivePicture& picture) {
  return picture.image ? Moravel::Test::ReadPictureNumber(
                             picture.image->GetData()->GetInnerBuffer(), picture.image->GetWidth(),
                             picture.image->GetWidth(), picture.image->GetHeight())
                       : -1;
}

class Live : public ::testing::Test {
 protected:
  Live() {
    StartHost(orl::mv::logging::ILogger::Level_NoLog);
    clip_ = Moravel::Test::MakeClip({.file = folder_ / "clip.avi", .pictures = kPictures});
    server_.SetTrack(1, clip_.file);
    Open({});
  }

  void Open(const LiveEngine::Limits& limits) {
    engine_.reset();
    const std::string track = "127.0.0.1:" + std::to_string(server_.Port()) + ":T1";
    LiveTracks tracks = OpenLiveTracks({ParseTrackArgument(track)}, {});
    ASSERT_TRUE(tracks.failed.empty());
    engine_ = std::make_unique<LiveEngine>(std::move(tracks.servers), limits);
  }

  std::future<LivePicture> Order(int64_t sample, Kind kind = Kind::Show, int64_t step = 1) {
    return engine_->Order({.key = {1, sample},
                           .size = kSize,
                           .kind = kind,
                           .step = step,
                           .lane = kind == Kind::Thumbnail ? "strip" : "picture",
                           .generation = kind == Kind::Show ? ++generation_ : generation_});
  }

  // The server has got its request, and nothing of its answer comes.
  std::future<LivePicture> OrderThatStalls(int64_t sample, Kind kind, int64_t step = 1) {
    const auto reading = std::make_shared<std::latch>(1);
    const auto first = std::make_shared<std::atomic<bool>>(true);
    server_.SetFaults([=](uint64_t) {
      if (!first->exchange(false))
        return Fault{};
      reading->count_down();
      return Fault{.stall = Fault::Point{Fault::Part::Body, 9}};
    });
    auto order = Order(sample, kind, step);
    reading->wait();
    return order;
  }

  Moravel::Test::TempFolder folder_;
  Moravel::Test::Clip clip_;
  Moravel::Test::FaultyServer server_;
  std::unique_ptr<LiveEngine> engine_;
  int64_t generation_ = 0;
};

TEST_F(Live, TheNewestOrderGoesFirstAndStaleOnesAreNeverRead) {
  Open({.connections = 1});
  auto read = OrderThatStalls(0, Kind::Show);
  std::vector<std::future<LivePicture>> dragged;
  auto thumbnail = Order(7, Kind::Thumbnail);
  for (const int64_t sample : {50, 150, 250, 350})
    dragged.push_back(Order(sample));
  for (size_t i = 0; i + 1 < dragged.size(); ++i)  // while the server is silent
    EXPECT_EQ(dragged[i].get().state, State::Stale);
  const uint64_t requests = server_.RequestCount();
  server_.ReleaseStalls();
  EXPECT_EQ(NumberOf(dragged.back().get()), 350);
  EXPECT_EQ(NumberOf(thumbnail.get()), 7);
  // It was under way already: shown, unless the newer one had come before it was decoded.
  EXPECT_THAT(read.get().state, testing::AnyOf(State::Shown, State::Stale));
  EXPECT_LE(server_.RequestCount() - requests, 2u + 1);
}

// Nobody releases the stall: the server would be given up after five seconds.
TEST_F(Live, AReadingThatStallsHoldsNothingUpThatIsMoreUrgent) {
  Open({.connections = 1});
  EXPECT_EQ(NumberOf(Order(1).get()), 1);
  constexpr int64_t kSeen = 1;
  const struct {
    Kind kind;
    int64_t sample, next;
    State state;
  } cases[] = {{Kind::Show, 40, 120, State::Stale},
               {Kind::Show, 160, kSeen, State::Stale},
               {Kind::Play, 200, 240, State::Stale},
               {Kind::Thumbnail, 280, 320, State::Shown}};
  for (const auto& [kind, sample, next, state] : cases) {
    auto stalled = OrderThatStalls(sample, kind);
    const Clock::time_point begin = Clock::now();
    EXPECT_EQ(NumberOf(Order(next).get()), next);
    EXPECT_EQ(stalled.get().state, state);
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(4));
    EXPECT_EQ(engine_->CurrentFigures().fetching.servers.at(0).failure, "");
    EXPECT_EQ(NumberOf(Order(sample).get()), sample);
  }
}

TEST_F(Live, APlaybackFindsWhatItNeedsNext) {
  for (const int64_t step : {3, -1}) {
    const int64_t begin = step > 0 ? 10 : 390;
    Order(begin).get();
    Order(begin, Kind::Play, step).get();
    for (int64_t i = 1; i <= 60; ++i)
      EXPECT_EQ(NumberOf(Order(begin + i * step, Kind::Play, step).get()), begin + i * step);
  }
  const FetchFigures figures = engine_->CurrentFigures().fetching;
  EXPECT_LE(figures.reads, 2 * (60 + 1 + 24 + 1));
}

TEST_F(Live, APlaybackThatFellBehindReadsNothingThatItPassed) {
  Open({.connections = 1});
  auto stalled = OrderThatStalls(10, Kind::Play);
  auto later = Order(200, Kind::Play);
  server_.ReleaseStalls();
  EXPECT_EQ(NumberOf(later.get()), 200);
  EXPECT_EQ(NumberOf(stalled.get()), 10);
  EXPECT_FALSE(Order(20).get().cached);
}

TEST_F(Live, APlaybackIsReadInItsOrderWhicheverComesFirst) {
  for (const int64_t step : {1, -1}) {
    Open({.connections = 1});
    constexpr int64_t kBegin = 200;
    auto stalled = OrderThatStalls(kBegin, Kind::Play, step);
    auto third = Order(kBegin + 3 * step, Kind::Play, step);
    auto second = Order(kBegin + 2 * step, Kind::Play, step);
    auto first = Order(kBegin + step, Kind::Play, step);
    const auto requests = std::make_shared<std::atomic<int>>(0);
    server_.SetFaults([=](uint64_t) {
      return ++*requests == 1 ? Fault{} : Fault{.stall = Fault::Point{Fault::Part::Body, 0}};
    });
    server_.ReleaseStalls();
    EXPECT_EQ(NumberOf(first.get()), kBegin + step);
    server_.SetFaults({});
    server_.ReleaseStalls();
    EXPECT_EQ(NumberOf(second.get()), kBegin + 2 * step);
    EXPECT_EQ(NumberOf(third.get()), kBegin + 3 * step);
  }
}

TEST_F(Live, WhatWasSeenStaysWithinTheBudget) {
  const auto sampleBytes = static_cast<int64_t>(clip_.samples[0].size());
  Open({.cacheBytes = 200 * (sampleBytes + 1000)});
  for (int64_t sample = 0; sample < kPictures; sample += 40)
    EXPECT_FALSE(Order(sample).get().cached);
  for (int64_t sample = kPictures - 40; sample >= 0; sample -= 40) {
    const LivePicture picture = Order(sample).get();
    EXPECT_TRUE(picture.cached) << sample;
    EXPECT_EQ(NumberOf(picture), sample);
  }
  for (int64_t sample = 1; sample < kPictures; ++sample)
    Order(sample).get();
  const FetchFigures figures = engine_->CurrentFigures().fetching;
  EXPECT_LE(figures.cacheBytes, figures.cacheMaxBytes);
  EXPECT_FALSE(Order(0).get().cached);
}

TEST_F(Live, TellsOfAServerThatIsGoneAndGoesOnWhenItIsBack) {
  EXPECT_EQ(NumberOf(Order(3).get()), 3);
  server_.SetListening(false);
  const LivePicture failed = Order(200).get();
  EXPECT_EQ(failed.state, State::Failed);
  EXPECT_THAT(failed.reason, HasSubstr("connect"));
  EXPECT_EQ(engine_->CurrentFigures().fetching.servers.at(0).failure, failed.reason);
  EXPECT_EQ(NumberOf(Order(3).get()), 3);  // what was seen is there
  server_.SetListening(true);
  EXPECT_EQ(NumberOf(Order(200).get()), 200);
  EXPECT_EQ(engine_->CurrentFigures().fetching.servers.at(0).failure, "");
}

TEST_F(Live, TellsOfAFileThatIsNotTheOneThatWasOpened) {
  EXPECT_EQ(NumberOf(Order(3).get()), 3);
  server_.SetTrack(1, Moravel::Test::MakeClip({.file = folder_ / "short.avi"}).file);
  const LivePicture picture = Order(200).get();
  EXPECT_EQ(picture.state, State::Failed);
  EXPECT_THAT(picture.reason, HasSubstr("start"));
  EXPECT_TRUE(engine_->MarksOf(1).missing.empty());
}

TEST_F(Live, EndsAtOnceAndAnswersEverybody) {
  server_.SetFault({.stall = Fault::Point{Fault::Part::Header, 0}});
  std::vector<std::future<LivePicture>> futures;
  std::mutex access;
  {
    std::vector<std::jthread> viewers;
    for (int viewer = 0; viewer < 8; ++viewer) {
      viewers.emplace_back([&, viewer] {
        for (int64_t i = 0; i < 50; ++i) {
          auto future = engine_->Order({.key = {1, (i * 37 + viewer) % kPictures},
                                        .size = kSize,
                                        .lane = std::to_string(viewer),
                                        .generation = i / 10});
          const std::lock_guard<std::mutex> lock(access);
          futures.push_back(std::move(future));
        }
      });
    }
  }
  const Clock::time_point begin = Clock::now();
  engine_.reset();
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(1));
  for (auto& future : futures) {
    ASSERT_EQ(future.wait_for(std::chrono::seconds(0)), std::future_status::ready);
    EXPECT_THAT(future.get().state, ::testing::AnyOf(State::Stale, State::Failed));
  }
}

}  // namespace
}  // namespace Moravel::Play
