#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <stop_token>
#include <vector>

#include "playing/PlayingTrack.h"

namespace Moravel::Play {

// One sample that is to be ordered.
struct Job {
  PlayingTrack* track = nullptr;
  int64_t position = 0;         // in the track's play sequence
  int64_t bytes = 0;            // that it will hold while it waits
  bool isLate = false;          // it would come too late: it is not to be asked for
  Clock::time_point time = {};  // of the order
};

// Says which sample each connection orders next: one of the track that is the least far in its
// time, so that all play at the same speed, in the order of its play sequence, as far ahead as the
// track's window and the bytes allow that may wait in all tracks together. In real time, nothing is
// ordered earlier than it would be by a player that shows the pictures. A track whose pictures come
// too late catches up: what is due soon is dropped, and orders go on where their pictures can be in
// time.
//
// The tracks of a lane share its connections. Any thread may call anything.
class OrderSchedule {
 public:
  struct Limits {
    int window = 16;           // samples of a track
    int64_t waitingBytes = 0;  // of all tracks; one sample may always wait
    bool realtime = false;
  };
  OrderSchedule(const Limits& limits, size_t lanes) : limits_(limits), lanes_(lanes) {}

  // One more connection of the lane will open tracks, and has opened all of its own.
  void AddOpener(size_t lane);
  void OpenerDone(size_t lane);
  // The track is open. Its orders go through that connection of the lane, or through any.
  void Add(size_t lane, std::optional<int> connection, int window, PlayingTrack& track);

  enum class Patience { Wait, DoNotWait };
  // The next order of a connection. Nothing after the stop, when no order of this lane is left, or
  // when there is none now and the caller does not wait.
  std::optional<Job> Next(size_t lane, int connection, Patience patience, std::stop_token stop);

  // The sample of a job is not needed any more.
  void Release(const Job& job);
  // No more orders of the track. The first position that has not been ordered; nothing when the
  // track was closed before.
  std::optional<int64_t> Close(PlayingTrack& track);

  // Real time: the track's first picture is there, and its clock starts, half a second before that
  // is due. Later ones: how much too late the picture came, zero when in time.
  Clock::duration Lateness(const Job& job);
  // Real time: whether the picture cannot come in time any more.
  bool HasPassed(const Job& job);

 private:
  struct LaneTrack {
    PlayingTrack* track;
    std::optional<int> connection;
  };
  struct Lane {
    int openers = 0;
    std::vector<LaneTrack> tracks;  // such as have orders left, the least far in its time first
  };

  std::optional<Job> TryNext(Lane& lane, int connection, Clock::time_point& wakeUp);
  std::optional<Job> Take(PlayingTrack& track, Clock::time_point& wakeUp);
  static bool IsTooLate(PlayingTrack& track, Clock::time_point now);
  bool HasOrders(const Lane& lane, int connection) const;
  static Clock::time_point DueTime(const PlayingTrack& track, int64_t position);
  void Changed();

  const Limits limits_;
  std::mutex access_;  // guards all below, and the ordering of all tracks
  std::condition_variable_any changed_;
  uint64_t changes_ = 0;
  int64_t waitingBytes_ = 0;
  std::vector<Lane> lanes_;
};

}  // namespace Moravel::Play
