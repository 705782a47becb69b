#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>

#include "sinks/OutputFile.h"
#include "sinks/Picture.h"

namespace Moravel::Play {

// Writes the pictures of one track and size as a YUV4MPEG2 stream, in the order of the play
// sequence, each for one period of its rate. Where a picture is missing or could not be decoded,
// the one before it is written again, grey if there is none, and that is told at the end. Takes
// I420.
//
// Pictures that come early wait here; a worker that is far ahead waits itself, so that there are
// never more than a few.
class Y4mSink : public IPictureSink {
 public:
  explicit Y4mSink(const std::filesystem::path& path) : path_(path) {}

  void Begin(const Track& track) override;
  void Write(const Picture& picture) override;
  void Finish() override;

 private:
  // Takes the lock of the pictures, and gives it back while it writes.
  void WriteWhatIsNext(std::unique_lock<std::mutex>& lock);
  void WriteFrame(const qel::VideoSampleConstPtr& image);

  const std::filesystem::path path_;
  // From Begin on; used by the thread that set writing_.
  std::optional<OutputFile> file_;
  Size size_;
  qel::VideoSampleConstPtr last_;
  int64_t repeated_ = 0;

  std::mutex picturesAccess_;  // guards all below
  std::condition_variable advanced_;
  std::map<int64_t, qel::VideoSampleConstPtr> early_;  // by play index
  int64_t next_ = 0;                                   // play index of the next picture
  bool writing_ = false;
  bool broken_ = false;  // a write failed: nothing more is written
};

}  // namespace Moravel::Play
