#include "elements/storage/ContainerTrack.h"

#include <algorithm>
#include <cctype>
#include <numeric>

#include "qel/WorkflowStepImplementation.h"
#include "qelCore/Printable.h"

namespace qel {

namespace {

std::string Lower(std::string_view text) {
  std::string lower(text);
  for (char& c : lower)
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

}  // namespace

void SetPixelAspect(ContainerTrack& track, uint64_t width, uint64_t height) {
  constexpr uint64_t kMost = 1'000'000;
  const uint64_t divisor = std::gcd(width, height);
  if (width == 0 || height == 0 || std::max(width, height) / divisor > kMost)
    return;
  track.facts.pixelAspectWidth = static_cast<uint32_t>(width / divisor);
  track.facts.pixelAspectHeight = static_cast<uint32_t>(height / divisor);
  track.hasPixelAspect = true;
}

std::string TooFewIndexed(int64_t announced, int64_t indexed) {
  return QEL_TEXT("the header announces " << announced << " pictures, the index has " << indexed);
}

bool IsMotionJpegCode(std::string_view code) {
  // What recorders write for the same.
  constexpr std::string_view kCodes[] = {"mjpg", "jpeg", "mjpa", "avdj", "dmb1", "ijpg", "jpgl",
                                         "jr24", "mjls", "acdv", "qivg", "slmj", "cjpg", "ijlv",
                                         "mvjp", "avi1", "avi2", "mtsj", "zjpg", "mmjp"};
  return std::find(std::begin(kCodes), std::end(kCodes), Lower(code)) != std::end(kCodes);
}

void ThrowNoMotionJpeg(const std::vector<std::string>& codes) {
  constexpr size_t kMostNames = 8;
  std::string names;
  for (size_t i = 0; i < std::min(codes.size(), kMostNames); ++i)
    names += (i == 0 ? "" : ", ") + Printable(codes[i]);
  throw QELRuntimeError(QEL_TEXT("the file has no motion-JPEG video stream (it has: "
                                 << (names.empty() ? "none" : names)
                                 << "); \"ffmpeg -i FILE -an -c:v mjpeg -q:v 2 OUT.mov\" makes a "
                                    "track of any video"));
}

}  // namespace qel
