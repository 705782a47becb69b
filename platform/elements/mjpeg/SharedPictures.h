#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <vector>

#include "elements/mjpeg/YuvPicture.h"
#include "qel/FourCC.h"
#include "qel/Infos.h"
#include "qel/Samples.h"

namespace qel::mjpeg {

// What an element makes of every picture; size 0x0 is the size of the picture.
struct WantedOutput {
  bool operator==(const WantedOutput&) const = default;

  Size size;
  FourCC fourCC = FourCC_undefined;
};
using WantedOutputs = std::vector<WantedOutput>;

// Most memory of decoded pictures that are kept for outputs which have not come for them yet.
constexpr size_t kMaxSharedPictureMemory = size_t{64} << 20;

// An output counts as wanted of a track until that many pushes on the track have come without it.
constexpr int64_t kWantedPushes = 64;

// Lets the elements that make different outputs of the same encoded picture decode it once: most of
// the cost of a picture is entropy decoding, whatever the size it is decoded at.
//
// The outputs asked for lately on a track are those expected for its next picture. Who comes first
// decodes for all of them; the others get that picture, or wait for it while it is being decoded.
// A picture is kept until each expected output has had it, within kMaxSharedPictureMemory, and not
// at all where a track has only one output. Thread-safe.
class SharedPictures {
 public:
  // Decodes so that each of the outputs can be made. Called without a lock.
  using Decode = std::function<YuvPictureConstPtr(const WantedOutputs& outputs)>;

  // The store of the process: elements that know nothing of each other share through it.
  static SharedPictures& Instance();

  // The picture of `encoded`, decoded now by `decode` or for another output before. Tracks are told
  // apart by the identity of their info, pictures by the identity of their buffer. What `decode`
  // throws is thrown and not kept: the next one who asks decodes again.
  YuvPictureConstPtr Get(const InfoConstPtr& track, const BufferConstPtr& encoded,
                         const WantedOutput& output, const Decode& decode);

 private:
  struct Track {
    struct Recent {
      WantedOutput output;
      int64_t push;
    };
    std::weak_ptr<const IInfo> info;
    int64_t pushes = 0;
    std::vector<Recent> recent;
  };
  struct Entry {
    std::weak_ptr<const IBuffer> encoded;
    WantedOutputs expected;      // have not had it yet
    YuvPictureConstPtr picture;  // empty while it is being decoded
  };
  using Entries = std::list<Entry>;

  WantedOutputs NoteWanted(const InfoConstPtr& track, const WantedOutput& output);
  Entries::iterator Find(const BufferConstPtr& encoded, const WantedOutput& output);
  YuvPictureConstPtr TakeOrWait(std::unique_lock<std::mutex>& lock, const BufferConstPtr& encoded,
                                const WantedOutput& output);
  YuvPictureConstPtr DecodeFor(std::unique_lock<std::mutex>& lock, Entries::iterator entry,
                               const WantedOutputs& outputs, const Decode& decode);
  void Trim();

  std::mutex access_;  // guards all below
  std::condition_variable decoded_;
  std::vector<Track> tracks_;
  Entries entries_;  // oldest first
};

}  // namespace qel::mjpeg
