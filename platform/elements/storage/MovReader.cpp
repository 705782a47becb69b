// MOV and MP4, after the "QuickTime File Format" and ISO/IEC 14496-12.
#include <array>
#include <utility>

#include "elements/storage/ByteReader.h"
#include "elements/storage/ContainerTrack.h"
#include "elements/storage/MovBoxes.h"
#include "elements/storage/MovEdits.h"
#include "elements/storage/MovFragments.h"
#include "elements/storage/MovTables.h"
#include "elements/storage/TrackIndex.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr int64_t kMaxTopLevelBoxes = 1'000'000;
constexpr int64_t kMaxFragmentHeaderBytes = int64_t{16} << 20;
// A header at the end of the file is read in one go with what lies around it.
constexpr int64_t kTailBytes = int64_t{4} << 20;

using Bytes = std::span<const uint8_t>;

// The units of time that a header ("mvhd", "mdhd") counts in, for each second.
uint32_t TimeUnits(Bytes header) {
  if (header.size() < kVersionBytes)
    return 0;
  ByteReader reader(header, "header");
  const bool isWide = reader.Byte() == 1;
  reader.Skip(kVersionBytes - 1 + (isWide ? 16 : 8));
  return reader.Big32();
}

struct TrackHeader {
  uint32_t id = 0;
  uint32_t width = 0;  // in 1/65536 pixels, as the track is to be shown
  uint32_t height = 0;
};

TrackHeader ReadTrackHeader(Bytes tkhd) {
  ByteReader reader(tkhd, "track header");
  const bool isWide = reader.Byte() == 1;
  reader.Skip(kVersionBytes - 1 + (isWide ? 16 : 8));
  TrackHeader header;
  header.id = reader.Big32();
  reader.Skip(isWide ? 12 : 8);
  reader.Skip(52);
  header.width = reader.Big32();
  header.height = reader.Big32();
  return header;
}

// The kind of the stream in an "esds", its DecoderConfigDescriptor's objectTypeIndication (ISO/IEC
// 14496-1); 0 when there is none.
uint8_t ObjectType(Bytes esds) {
  constexpr uint8_t kStream = 3;
  constexpr uint8_t kDecoderConfig = 4;
  if (esds.size() < kVersionBytes)
    return 0;
  ByteReader reader(esds.subspan(kVersionBytes), "stream description");
  const auto enter = [&reader](uint8_t wanted) {
    if (reader.Left() == 0 || reader.Byte() != wanted)
      return false;
    while (reader.Left() > 0 && (reader.Byte() & 0x80) != 0) {  // the length, seven bits a byte
    }
    return true;
  };
  if (!enter(kStream) || reader.Left() < 3)
    return 0;
  reader.Skip(2);
  const uint8_t flags = reader.Byte();
  const size_t others = (flags & 0x80 ? 2u : 0u) + (flags & 0x20 ? 2u : 0u);
  if ((flags & 0x40) != 0 || reader.Left() < others)
    return 0;
  reader.Skip(others);
  return enter(kDecoderConfig) && reader.Left() > 0 ? reader.Byte() : uint8_t{0};
}

// Whether the first place of data ("dref") is not the file itself.
bool IsElsewhere(Bytes dref) {
  constexpr uint8_t kInThisFile = 1;
  constexpr size_t kListAt = kVersionBytes + 4;
  bool isFirst = true;
  bool isElsewhere = false;
  ForEachBox(dref.subspan(std::min(dref.size(), kListAt)), [&](const auto&, Bytes place) {
    if (std::exchange(isFirst, false) && place.size() >= kVersionBytes)
      isElsewhere = (place[kVersionBytes - 1] & kInThisFile) == 0;
  });
  return isElsewhere;
}

// What is stored first and shown first ("fiel").
std::optional<FileFields> ReadFields(Bytes fiel) {
  if (fiel.size() < 2 || fiel[0] != 2)
    return std::nullopt;
  switch (fiel[1]) {
    case 1:
      return FileFields{false, false};
    case 6:
      return FileFields{true, true};
    case 9:
      return FileFields{.isBottomShownFirst = true, .isBottomStoredFirst = false};
    case 14:
      return FileFields{.isBottomShownFirst = false, .isBottomStoredFirst = true};
    default:
      return std::nullopt;
  }
}

// One video track ("trak").
struct VideoTrack {
  TrackHeader header;
  Bytes trak;
  Bytes stbl;
  uint32_t units = 0;
  std::string code;
  uint16_t width = 0;
  uint16_t height = 0;
  Bytes extensions;  // boxes behind the description
};

void ReadDescription(VideoTrack& track) {
  constexpr size_t kJpegObject = 0x6C;
  const Bytes stsd = FindBox(track.stbl, "stsd");
  ByteReader table(stsd, "sample description");
  table.Skip(kVersionBytes + 4);
  const uint32_t size = table.Big32();
  track.code = table.Name();
  ByteReader reader(table.Take(std::min<size_t>(size < 8 ? 0 : size - 8, table.Left())),
                    "sample description");
  reader.Skip(24);
  track.width = reader.Big16();
  track.height = reader.Big16();
  reader.Skip(50);
  track.extensions = reader.Rest();
  if (track.code == "mp4v" && ObjectType(FindBox(track.extensions, "esds")) == kJpegObject)
    track.code = "jpeg";
}

class MovFile {
 public:
  explicit MovFile(ReadAheadCache& file) : file_(file) {}

  ContainerTrack Read() {
    FindHeader();
    ForEachBox(moov_, [this](const std::string& name, Bytes content) {
      if (name == "cmov") {
        throw QELRuntimeError(
            "the header is compressed: \"ffmpeg -i FILE -c copy OUT.mov\" writes it plainly");
      }
      if (name == "trak")
        LookAtTrack(content);
    });
    if (!isFound_)
      ThrowNoMotionJpeg(codes_);
    ContainerTrack track;
    track.facts.container = isQuickTime_ ? "MOV" : "MP4";
    TakeDescription(track);
    TakeTimecode(track);
    TakeSamples(track);
    return track;
  }

 private:
  struct Box {
    std::string name;
    int64_t offset;
    int64_t content;
    int64_t end;  // as it says; may lie behind the file's
  };

  Box BoxAt(int64_t offset) {
    std::array<uint8_t, 16> header{};
    file_.ReadExactly(offset, std::span(header).first(kBoxHeaderBytes));
    ByteReader reader(header, "header");
    uint64_t size = reader.Big32();
    const std::string name = reader.Name();
    int64_t headerBytes = kBoxHeaderBytes;
    if (size == 1) {
      headerBytes = int64_t{header.size()};
      file_.ReadExactly(offset, header);
      size = reader.Big64();
    } else if (size == 0) {
      size = static_cast<uint64_t>(file_.Size() - offset);
    }
    if (size < static_cast<uint64_t>(headerBytes)) {
      throw QELRuntimeError(QEL_TEXT("the box at byte "
                                     << offset << " is damaged or truncated: it says " << size
                                     << " bytes"));
    }
    const auto length = static_cast<int64_t>(std::min<uint64_t>(size, kMaxFileOffset));
    return {name, offset, offset + headerBytes, offset + length};
  }

  std::optional<Box> NextBox() {
    if (file_.Size() - at_ < kBoxHeaderBytes || ++boxes_ > kMaxTopLevelBoxes)
      return std::nullopt;
    if (file_.Size() - at_ <= std::min(at_, kTailBytes))
      file_.Fetch(at_, file_.Size());
    const Box box = BoxAt(at_);
    at_ = box.end;
    return box;
  }

  std::vector<uint8_t> ContentOf(const Box& box, int64_t mostBytes) {
    if (box.end > file_.Size()) {
      throw QELRuntimeError(QEL_TEXT("the box at byte "
                                     << box.offset << " is damaged or truncated: it says "
                                     << box.end - box.offset << " bytes, the file has "
                                     << file_.Size() - box.offset << " from there on"));
    }
    if (box.end - box.content > mostBytes) {
      throw QELRuntimeError(QEL_TEXT("the header takes " << box.end - box.content
                                                         << " bytes, at most " << mostBytes
                                                         << " are read"));
    }
    return file_.Content(box.content, box.end - box.content);
  }

  void FindHeader() {
    while (const auto box = NextBox()) {
      if (box->name == "ftyp" && box->content + 4 <= file_.Size()) {
        std::array<uint8_t, 4> brand{};
        file_.ReadExactly(box->content, brand);
        isQuickTime_ = brand == std::array<uint8_t, 4>{'q', 't', ' ', ' '};
      }
      if (box->name != "moov")
        continue;
      moov_ = ContentOf(*box, kMaxIndexBytes / 2);
      return;
    }
    throw QELRuntimeError(
        "the file has no header (\"moov\"): it is truncated, or was never finished, and cannot be "
        "played without; whatever recorded it has to finish it");
  }

  void LookAtTrack(Bytes trak) {
    const Bytes media = FindBox(trak, "mdia");
    const Bytes handler = FindBox(media, "hdlr");
    if (isFound_ || handler.size() < 12 ||
        std::string(handler.begin() + 8, handler.begin() + 12) != "vide")
      return;
    VideoTrack track;
    track.trak = trak;
    track.stbl = FindBox(media, {"minf", "stbl"});
    ReadDescription(track);
    if (IsElsewhere(FindBox(media, {"minf", "dinf", "dref"})))
      throw QELRuntimeError("the file only refers to another one, in which the pictures are");
    codes_.push_back(track.code);
    isFound_ = IsMotionJpegCode(track.code);
    if (!isFound_)
      return;
    track.header = ReadTrackHeader(FindBox(trak, "tkhd"));
    track.units = TimeUnits(FindBox(media, "mdhd"));
    video_ = track;
  }

  void TakeDescription(ContainerTrack& track) const {
    TrackFacts& facts = track.facts;
    facts.width = video_.width;
    facts.height = video_.height;
    track.fields = ReadFields(FindBox(video_.extensions, "fiel"));
    const Bytes pasp = FindBox(video_.extensions, "pasp");
    if (pasp.size() >= 8) {
      ByteReader reader(pasp, "pixel aspect");
      const uint64_t wide = reader.Big32();
      SetPixelAspect(track, wide, reader.Big32());
    } else {  // else as the track is to be shown
      const uint64_t wide = uint64_t{video_.header.width} * video_.height;
      const uint64_t high = uint64_t{video_.header.height} * video_.width;
      if (wide != high)
        SetPixelAspect(track, wide, high);
    }
  }

  void TakeSamples(ContainerTrack& track) {
    MovTables tables = ReadMovTables(video_.stbl);
    track.places = std::move(tables.places);
    track.times = std::move(tables.times);
    track.timeUnits = video_.units;
    track.facts.problems = std::move(tables.problems);
    if (track.places.Count() < tables.announced)
      track.facts.problems.push_back(TooFewIndexed(tables.announced, track.places.Count()));
    const Bytes extends = FindBox(moov_, "mvex");
    if (extends.data() != nullptr)
      ReadFragments(extends, track);
    else
      track.facts.announcedSamples = tables.announced;
    if (track.places.Count() == 0) {
      throw QELRuntimeError(QEL_TEXT("the file has no index: its header names no samples"
                                     << (extends.data() != nullptr ? ", and no fragment does" : "")
                                     << "; it is truncated, or was never finished"));
    }
    ApplyEdits(FindBox(video_.trak, {"edts", "elst"}), TimeUnits(FindBox(moov_, "mvhd")), track);
  }

  FragmentDefaults DefaultsOf(Bytes extends) const {
    FragmentDefaults defaults;
    defaults.trackId = video_.header.id;
    ForEachBox(extends, [&](const std::string& name, Bytes content) {
      if (name != "trex" || content.size() < 20)
        return;
      ByteReader reader(content, "header");
      reader.Skip(kVersionBytes);
      if (reader.Big32() != defaults.trackId)
        return;
      reader.Skip(4);
      defaults.duration = reader.Big32();
      defaults.size = reader.Big32();
    });
    return defaults;
  }

  void ReadFragments(Bytes extends, ContainerTrack& track) {
    const FragmentDefaults defaults = DefaultsOf(extends);
    int64_t fragments = 0;
    while (const auto box = NextBox()) {
      if (box->name != "moof")
        continue;
      ++fragments;
      if (box->end > file_.Size()) {
        track.facts.problems.push_back(
            QEL_TEXT("the file ends inside its fragment " << fragments << ": it is truncated"));
        return;
      }
      const auto content = ContentOf(*box, kMaxFragmentHeaderBytes);
      try {
        AppendFragment(content, box->offset, defaults, track);
      } catch (const QELRuntimeError& error) {
        track.facts.problems.push_back(QEL_TEXT("fragment " << fragments << ": " << error.what()));
        return;
      }
    }
  }

  // Of the first picture: the track that the video track refers to has it as a sample.
  void TakeTimecode(ContainerTrack& track) {
    const Bytes reference = FindBox(video_.trak, {"tref", "tmcd"});
    if (reference.size() < 4)
      return;
    const uint32_t id = ByteReader(reference, "track reference").Big32();
    ForEachBox(moov_, [&](const std::string& name, Bytes trak) {
      if (name == "trak" && ReadTrackHeader(FindBox(trak, "tkhd")).id == id)
        ReadTimecode(FindBox(trak, {"mdia", "minf", "stbl"}), track);
    });
  }

  void ReadTimecode(Bytes stbl, ContainerTrack& track) {
    constexpr uint32_t kDropFrame = 1;
    const Bytes stsd = FindBox(stbl, "stsd");
    const SamplePlaces places = ReadMovTables(stbl).places;
    if (stsd.size() < 41 || places.Count() == 0 || places.At(0).offset > file_.Size() - 4)
      return;
    ByteReader reader(stsd, "time code");
    reader.Skip(kVersionBytes + 4 + 4);
    if (reader.Name() != "tmcd")
      return;
    reader.Skip(12);
    const bool isDropFrame = (reader.Big32() & kDropFrame) != 0;
    reader.Skip(8);
    const uint8_t framesPerSecond = reader.Byte();
    std::array<uint8_t, 4> sample{};
    file_.ReadExactly(places.At(0).offset, sample);
    if (framesPerSecond == 0)
      return;
    track.facts.timecode =
        Timecode{ByteReader(sample, "time code").Big32(), framesPerSecond, isDropFrame};
  }

  ReadAheadCache& file_;
  int64_t at_ = 0;  // of the next box
  int64_t boxes_ = 0;
  bool isQuickTime_ = true;
  std::vector<uint8_t> moov_;
  std::vector<std::string> codes_;
  bool isFound_ = false;
  VideoTrack video_;
};

}  // namespace

ContainerTrack ReadMovTrack(ReadAheadCache& file) {
  return MovFile(file).Read();
}

}  // namespace qel
