#include "elements/storage/FileKind.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr size_t kHeadBytes = 16;

struct OtherKind {
  size_t at;
  std::string_view bytes;
  std::string_view name;
  std::string_view command;  // that makes a track of it
};

constexpr std::string_view kRemux = "ffmpeg -i FILE -c copy OUT.mov";
constexpr std::string_view kRemuxRaw = "ffmpeg -framerate 25 -f mjpeg -i FILE -c copy OUT.mov";
constexpr std::string_view kRemuxParts = "ffmpeg -f mpjpeg -i FILE -c copy OUT.mov";
constexpr std::string_view kEncode = "ffmpeg -i FILE -an -c:v mjpeg -q:v 2 OUT.mov";

constexpr OtherKind kOtherKinds[] = {
    {0, "\x1A\x45\xDF\xA3", "a Matroska or WebM file", kRemux},
    {0, "\xFF\xD8\xFF", "raw motion JPEG or a JPEG picture", kRemuxRaw},
    {0, "--", "motion JPEG in parts, as cameras send it", kRemuxParts},
    {0, "\x06\x0E\x2B\x34", "an MXF file", kRemux},
    {0, "\x30\x26\xB2\x75", "an ASF or WMV file", kRemux},
    {0, "nut/mult", "a NUT file", kRemux},
    {0, "OggS", "an Ogg file", kEncode},
    {0, "FLV", "a Flash video", kEncode},
    {0, "YUV4MPEG2", "uncompressed video (y4m)", kEncode},
    {0, "\x47", "an MPEG transport stream", kEncode},
    {0, std::string_view("\0\0\1\xBA", 4), "an MPEG program stream", kEncode},
    {8, "WAVE", "a WAVE sound file, which has no pictures", ""},
};

[[noreturn]] void ThrowOtherKind(std::string_view head, int64_t size) {
  for (const OtherKind& kind : kOtherKinds) {
    if (head.size() < kind.at || !head.substr(kind.at).starts_with(kind.bytes))
      continue;
    throw QELRuntimeError(QEL_TEXT("the file is neither AVI nor MOV, it is "
                                   << kind.name << (kind.command.empty() ? "" : ": \"")
                                   << kind.command
                                   << (kind.command.empty() ? "" : "\" makes a track of it")));
  }
  throw QELRuntimeError(QEL_TEXT("the file (" << size << " bytes) is neither AVI nor MOV"));
}

}  // namespace

FileKind ReadFileKind(ReadAheadCache& file) {
  constexpr std::string_view kMovTypes[] = {"ftyp", "moov", "mdat", "wide", "free",
                                            "skip", "pnot", "uuid", "styp"};
  std::array<uint8_t, kHeadBytes> bytes{};
  const auto count = std::min<int64_t>(file.Size(), int64_t{bytes.size()});
  file.ReadExactly(0, std::span(bytes).first(static_cast<size_t>(count)));
  const std::string_view head(reinterpret_cast<const char*>(bytes.data()),
                              static_cast<size_t>(count));
  if (head.size() >= 12 && head.starts_with("RIFF") && head.substr(8, 4) == "AVI ")
    return FileKind::Avi;
  if (head.size() >= 8 && std::find(std::begin(kMovTypes), std::end(kMovTypes),
                                    head.substr(4, 4)) != std::end(kMovTypes))
    return FileKind::Mov;
  ThrowOtherKind(head, file.Size());
}

}  // namespace qel
