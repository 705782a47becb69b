// AVI, after Microsoft's "AVI RIFF File Reference" and the "OpenDML AVI File Format Extensions",
// version 1.02 (1996).
#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

#include "elements/storage/AviIndexes.h"
#include "elements/storage/ByteReader.h"
#include "elements/storage/ContainerTrack.h"
#include "elements/storage/TrackIndex.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr int64_t kMaxHeaderBytes = int64_t{16} << 20;
constexpr int64_t kMaxInfoBytes = int64_t{64} << 10;
constexpr int kMaxTopLevelChunks = 256;

struct AviStream {
  int number = 0;
  bool isVideo = false;
  std::string code;
  uint32_t scale = 0;
  uint32_t rate = 0;
  uint32_t length = 0;
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint8_t> index;  // "indx"
  std::optional<FileFields> fields;
  uint32_t frameAspect = 0;  // width, height in 16 bits each
};

// What a list holds, chunk by chunk; chunks that say they are longer than it end with it.
template <typename Function>
void ForEachChunk(std::span<const uint8_t> list, Function function) {
  ByteReader reader(list, "header");
  while (reader.Left() >= kChunkHeaderBytes) {
    const std::string name = reader.Name();
    const size_t size = reader.Little32();
    function(name, reader.Take(std::min(size, reader.Left())));
    reader.Skip(std::min<size_t>(size % 2, reader.Left()));
  }
}

void TakeStreamHeader(std::span<const uint8_t> content, AviStream& stream) {
  ByteReader reader(content, "stream header");
  stream.isVideo = reader.Name() == "vids";
  stream.code = reader.Name();
  reader.Skip(12);
  stream.scale = reader.Little32();
  stream.rate = reader.Little32();
  reader.Skip(4);
  stream.length = reader.Little32();
}

// A BITMAPINFOHEADER; pictures that are stored upside down have a negative height.
void TakeFormat(std::span<const uint8_t> content, AviStream& stream) {
  ByteReader reader(content, "stream format");
  reader.Skip(4);
  stream.width = static_cast<int32_t>(reader.Little32());
  stream.height = static_cast<int32_t>(reader.Little32());
  reader.Skip(4);
  const std::string code = reader.Name();
  if (!IsMotionJpegCode(stream.code) || IsMotionJpegCode(code))
    stream.code = code;
}

// Video properties: the order of fields is that of the lines they begin with.
void TakeProperties(std::span<const uint8_t> content, AviStream& stream) {
  constexpr size_t kFieldBytes = 32;
  constexpr size_t kFirstLineAt = 28;
  ByteReader reader(content, "video properties");
  reader.Skip(20);
  stream.frameAspect = reader.Little32();
  reader.Skip(8);
  if (reader.Little32() != 2 || reader.Left() < 2 * kFieldBytes)
    return;
  reader.Skip(kFirstLineAt);
  const uint32_t first = reader.Little32();
  reader.Skip(kFirstLineAt);
  const bool isBottomFirst = first > reader.Little32();
  stream.fields = {isBottomFirst, isBottomFirst};
}

AviStream ReadStream(std::span<const uint8_t> list, int number) {
  AviStream stream;
  stream.number = number;
  ForEachChunk(list, [&](const std::string& name, std::span<const uint8_t> content) {
    if (name == "strh" && content.size() >= 36)
      TakeStreamHeader(content, stream);
    else if (name == "strf" && content.size() >= 20)
      TakeFormat(content, stream);
    else if (name == "indx")
      stream.index.assign(content.begin(), content.end());
    else if (name == "vprp" && content.size() >= 36)
      TakeProperties(content, stream);
  });
  return stream;
}

// "hh:mm:ss:ff", with ";" before ff where frame numbers are dropped.
std::optional<Timecode> ParseTimecode(std::span<const uint8_t> text, const EditRate& rate) {
  std::array<int64_t, 4> parts{};
  const char* at = reinterpret_cast<const char*>(text.data());
  const char* const end = at + text.size();
  char separator = ':';
  for (int64_t& part : parts) {
    const auto [behind, error] = std::from_chars(at, end, part);
    if (error != std::errc() || part < 0 || part > 99)
      return std::nullopt;
    if (&part != &parts.back()) {
      if (behind == end)
        return std::nullopt;
      separator = *behind;
      at = behind + 1;
    }
  }
  return Timecode::FromParts(parts[0], parts[1], parts[2], parts[3], separator == ';', rate);
}

class AviFile {
 public:
  explicit AviFile(ReadAheadCache& file) : file_(file) {}

  ContainerTrack Read() {
    ReadHeader();
    AviIndexes indexes(file_, stream_.number);
    if (!stream_.index.empty())
      indexes.ReadOpenDml(stream_.index);
    if (indexes.Chunks() == 0 || indexes.Chunks() < int64_t{stream_.length})
      ReadOldIndex(indexes);
    if (indexes.Chunks() == 0) {
      throw QELRuntimeError(
          "the file has no index: it is truncated, or was never finished; "
          "\"ffmpeg -i FILE -c copy OUT.avi\" makes one of what is there");
    }
    return MakeTrack(std::move(indexes));
  }

 private:
  struct Chunk {
    std::string name;
    int64_t content;
    int64_t size;
    int64_t End() const { return content + size + size % 2; }
  };

  std::optional<Chunk> ChunkAt(int64_t offset) {
    std::array<uint8_t, kChunkHeaderBytes> header{};
    if (offset + int64_t{header.size()} > file_.Size())
      return std::nullopt;
    file_.ReadExactly(offset, header);
    ByteReader reader(header, "chunk header");
    const std::string name = reader.Name();
    return Chunk{name, offset + int64_t{header.size()}, int64_t{reader.Little32()}};
  }

  std::vector<uint8_t> ContentOf(const Chunk& chunk) {
    return file_.Content(chunk.content, std::min(chunk.size, file_.Size() - chunk.content));
  }

  // Up to the pictures.
  void ReadHeader() {
    int64_t offset = kRiffHeaderBytes;
    for (int i = 0; i < kMaxTopLevelChunks && movi_ == 0; ++i) {
      const auto chunk = ChunkAt(offset);
      if (!chunk)
        break;
      if (chunk->name == "LIST" && chunk->content + 4 <= file_.Size())
        ReadList(*chunk);
      offset = chunk->End();
    }
    if (!hasHeader_ || movi_ == 0) {
      throw QELRuntimeError(QEL_TEXT("the file has no " << (hasHeader_ ? "pictures" : "header")
                                                        << ": it is truncated"));
    }
  }

  void ReadList(const Chunk& list) {
    std::array<uint8_t, 4> type{};
    file_.ReadExactly(list.content, type);
    const Chunk inner{{type.begin(), type.end()}, list.content + 4, list.size - 4};
    if (inner.name == "movi") {
      movi_ = list.content;
      behindMovi_ = list.End();
    } else if (inner.name == "hdrl" && inner.size > 0) {
      if (inner.size > kMaxHeaderBytes) {
        throw QELRuntimeError(QEL_TEXT("the header takes " << inner.size << " bytes, at most "
                                                           << kMaxHeaderBytes << " are read"));
      }
      TakeHeader(ContentOf(inner));
    } else if (inner.name == "INFO" && inner.size > 0 && inner.size <= kMaxInfoBytes) {
      ForEachChunk(ContentOf(inner), [this](const std::string& name, auto content) {
        if (name == "ISMP")
          timecode_.assign(content.begin(), content.end());
      });
    }
  }

  void TakeHeader(std::span<const uint8_t> header) {
    hasHeader_ = true;
    std::vector<std::string> codes;
    int streams = 0;
    bool isFound = false;
    ForEachChunk(header, [&](const std::string& name, std::span<const uint8_t> content) {
      if (name == "avih" && content.size() >= 4)
        microsecondsPerFrame_ = ByteReader(content, "header").Little32();
      if (name != "LIST" || content.size() < 4 || std::memcmp(content.data(), "strl", 4) != 0)
        return;
      AviStream stream = ReadStream(content.subspan(4), streams++);
      codes.push_back(stream.code);
      if (!isFound && stream.isVideo && IsMotionJpegCode(stream.code)) {
        isFound = true;
        stream_ = std::move(stream);
      }
    });
    if (!isFound)
      ThrowNoMotionJpeg(codes);
  }

  // Lies behind the pictures, mostly as the last of the file.
  void ReadOldIndex(AviIndexes& indexes) {
    constexpr int64_t kTailBytes = int64_t{4} << 20;
    if (file_.Size() - behindMovi_ <= kTailBytes)
      file_.Fetch(behindMovi_, file_.Size());
    int64_t offset = behindMovi_;
    for (int i = 0; i < kMaxTopLevelChunks; ++i) {
      const auto chunk = ChunkAt(offset);
      if (!chunk || chunk->name == "RIFF")
        return;
      if (chunk->name == "idx1") {
        indexes.ReadOld(chunk->content, std::min(chunk->size, file_.Size() - chunk->content),
                        movi_);
        return;
      }
      offset = chunk->End();
    }
  }

  ContainerTrack MakeTrack(AviIndexes indexes) const {
    ContainerTrack track;
    TrackFacts& facts = track.facts;
    facts.container = "AVI";
    facts.width = std::abs(std::max(stream_.width, -INT32_MAX));
    facts.height = std::abs(std::max(stream_.height, -INT32_MAX));
    facts.announcedSamples = stream_.length;
    facts.problems = indexes.Problems();
    if (indexes.Chunks() < int64_t{stream_.length})
      facts.problems.push_back(TooFewIndexed(stream_.length, indexes.Chunks()));
    facts.repeats = indexes.Repeats();
    TakeAspect(track);
    track.fields = stream_.fields;
    track.places = std::move(indexes.places);
    track.times = std::move(indexes.times);
    track.timeUnits = stream_.rate;
    track.timeUnitsPer = stream_.scale;
    if (stream_.rate == 0 || stream_.scale == 0) {  // then the main header's
      track.timeUnits = 1'000'000;
      track.timeUnitsPer = microsecondsPerFrame_;
    }
    track.chunkHeaderBytes = kChunkHeaderBytes;
    track.streamNumber = stream_.number;
    facts.timecode = ParseTimecode(timecode_, {stream_.rate, std::max(stream_.scale, 1u)});
    return track;
  }

  void TakeAspect(ContainerTrack& track) const {
    const uint64_t wide = stream_.frameAspect >> 16;
    const uint64_t high = stream_.frameAspect & 0xFFFF;
    SetPixelAspect(track, wide * static_cast<uint64_t>(track.facts.height),
                   high * static_cast<uint64_t>(track.facts.width));
  }

  ReadAheadCache& file_;
  bool hasHeader_ = false;
  AviStream stream_;
  uint32_t microsecondsPerFrame_ = 0;
  std::vector<uint8_t> timecode_;
  int64_t movi_ = 0;  // the list's type, which offsets of the old index may count from
  int64_t behindMovi_ = 0;
};

}  // namespace

ContainerTrack ReadAviTrack(ReadAheadCache& file) {
  return AviFile(file).Read();
}

}  // namespace qel
