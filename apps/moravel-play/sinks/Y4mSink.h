#pragma once

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>

#include "sinks/OutputFile.h"
#include "sinks/Picture.h"

namespace Moravel::Play {

// Writes the pictures of one track and size as a YUV4MPEG2 stream, in the order of the play
// sequence; pictures that are missing are left out. Takes I420.
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
  void WriteFrame(const qel::IVideoSample& image);

  const std::filesystem::path path_;
  std::optional<OutputFile> file_;  // from Begin; used by the thread that set writing_

  std::mutex picturesAccess_;  // guards all below
  std::condition_variable advanced_;
  std::map<int64_t, qel::VideoSampleConstPtr> early_;  // by play index
  int64_t next_ = 0;                                   // play index of the next picture
  bool writing_ = false;
  bool broken_ = false;  // a write failed: nothing more is written
};

}  // namespace Moravel::Play
