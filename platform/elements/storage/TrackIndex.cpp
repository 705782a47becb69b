#include "elements/storage/TrackIndex.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "elements/storage/AvDemuxer.h"
#include "elements/storage/JpegFields.h"
#include "elements/storage/MovHeader.h"
#include "elements/storage/ReadAheadCache.h"
#include "qel/WorkflowStepImplementation.h"

namespace qel {

namespace {

constexpr int64_t kFirstPictureHeadBytes = 4096;
constexpr int64_t kAviReadAround = 16 << 10;

std::string_view Text(std::span<const uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool IsAvi(ReadAheadCache& file) {
  constexpr std::string_view kMovTypes[] = {"ftyp", "moov", "mdat", "wide", "free", "skip", "pnot"};
  std::array<uint8_t, 12> head{};
  if (file.Size() >= int64_t{head.size()}) {
    file.ReadExactly(0, head);
    const std::string_view text = Text(head);
    if (text.starts_with("RIFF") && text.ends_with("AVI "))
      return true;
    if (std::find(std::begin(kMovTypes), std::end(kMovTypes), text.substr(4, 4)) !=
        std::end(kMovTypes))
      return false;
  }
  throw QELRuntimeError(QEL_TEXT("the file (" << file.Size() << " bytes) is neither AVI nor MOV"));
}

// Whether a chunk of this header holds index entries, and how long they are.
std::optional<uint32_t> AviIndexChunkSize(std::span<const uint8_t> header) {
  const std::string_view type = Text(header.first(4));
  if (type != "idx1" && !type.starts_with("ix") && !type.ends_with("ix"))
    return std::nullopt;
  return uint32_t{header[4]} | uint32_t{header[5]} << 8 | uint32_t{header[6]} << 16 |
         uint32_t{header[7]} << 24;
}

// The parts of an AVI file for libavformat. It goes either to the header of a chunk or right behind
// that, and reads on in small steps; so what comes from the server is first a little around the
// place, and then all of the chunk if it holds index entries. The indexes of a file's segments are
// about as long as each other: `indexChunkSize`, the last one's, is what the next is fetched by.
std::span<const uint8_t> ReadAviPart(ReadAheadCache& file, int64_t offset,
                                     int64_t& indexChunkSize) {
  constexpr int kHeader = 8;
  if (file.Holds(offset) || offset >= file.Size())
    return file.At(offset);
  const int64_t around = std::max<int64_t>(offset - kHeader, 0);
  file.Fetch(around, around + indexChunkSize);
  for (const int64_t start : {around, offset}) {
    std::array<uint8_t, kHeader> header{};
    if (start + kHeader > file.Size())
      break;
    file.ReadExactly(start, header);
    if (const auto size = AviIndexChunkSize(header)) {
      indexChunkSize = kHeader + int64_t{*size};
      file.Fetch(start, start + indexChunkSize);
      break;
    }
  }
  return file.At(offset);
}

AvDemuxer OpenDemuxer(ReadAheadCache& file, bool isAvi) {
  if (isAvi) {
    const int64_t maxBytes = std::min(4 * file.Size(), 16 * kMaxIndexEntries) + (int64_t{1} << 20);
    return AvDemuxer("avi", file.Size(), maxBytes,
                     [&file, indexChunkSize = kAviReadAround](int64_t offset) mutable {
                       return ReadAviPart(file, offset, indexChunkSize);
                     });
  }
  const auto header = std::make_shared<const std::vector<uint8_t>>(ExtractMovHeader(file));
  const auto size = static_cast<int64_t>(header->size());
  return AvDemuxer("mov", size, 4 * size + (int64_t{1} << 20), [header](int64_t offset) {
    return std::span(*header).subspan(std::min(static_cast<size_t>(offset), header->size()));
  });
}

EditRate Reduced(int64_t numerator, int64_t denominator) {
  int n = 0;
  int d = 0;
  av_reduce(&n, &d, numerator, denominator, INT32_MAX);
  if (n <= 0 || d <= 0) {
    throw QELRuntimeError(QEL_TEXT("the track's rate of "
                                   << numerator << "/" << denominator
                                   << " samples a second cannot be: both parts are above zero"));
  }
  return {static_cast<uint32_t>(n), static_cast<uint32_t>(d)};
}

// AVI counts samples: an entry's time is its number, and a number without an entry is a sample that
// was dropped.
void TakeAviEntries(const AVStream& stream, int entries, TrackIndex& index) {
  const int64_t first = avformat_index_get_entry(const_cast<AVStream*>(&stream), 0)->timestamp;
  for (int i = 0; i < entries; ++i) {
    const AVIndexEntry& entry = *avformat_index_get_entry(const_cast<AVStream*>(&stream), i);
    const int64_t number = entry.timestamp - first;
    if (number < index.Count())
      continue;
    if (number >= kMaxIndexEntries) {
      throw QELRuntimeError(
          QEL_TEXT("the index has more than the " << kMaxIndexEntries << " samples that are read"));
    }
    index.offsets.resize(static_cast<size_t>(number), 0);
    index.sizes.resize(static_cast<size_t>(number), 0);
    index.offsets.push_back(entry.pos + TrackIndex::kAviChunkHeaderBytes);
    index.sizes.push_back(static_cast<uint32_t>(std::max(entry.size, 0)));
  }
  index.facts.timeRate = Reduced(stream.time_base.den, stream.time_base.num);
  index.facts.nominalRate = index.facts.timeRate;
}

// MOV gives each sample its own time.
void TakeMovEntries(const AVStream& stream, int entries, TrackIndex& index) {
  const int64_t first = avformat_index_get_entry(const_cast<AVStream*>(&stream), 0)->timestamp;
  for (int i = 0; i < entries; ++i) {
    const AVIndexEntry& entry = *avformat_index_get_entry(const_cast<AVStream*>(&stream), i);
    index.offsets.push_back(entry.pos);
    index.sizes.push_back(static_cast<uint32_t>(std::max(entry.size, 0)));
    const int64_t earliest = index.starts.empty() ? 0 : index.starts.back();
    index.starts.push_back(std::clamp(entry.timestamp - first, earliest, INT64_MAX / 2));
  }
  const int64_t end = std::clamp<int64_t>(stream.duration, 0, INT64_MAX / 2);
  index.starts.push_back(std::max(end, index.starts.back()));
}

// A constant rate needs no times; the last sample's duration is whatever the file says.
void SettleRate(const AVStream& stream, TrackIndex& index) {
  std::vector<int64_t>& starts = index.starts;
  const int64_t count = index.Count();
  const int64_t unit = std::max<int64_t>(starts[1] - starts[0], 1);
  if (count > 1 && starts.back() == starts[static_cast<size_t>(count - 1)])
    starts.back() += unit;
  const bool isConstant =
      std::adjacent_find(starts.begin(), starts.end() - 1, [unit](int64_t a, int64_t b) {
        return b - a != unit;
      }) == starts.end() - 1;
  const int64_t scale = stream.time_base.den;
  if (isConstant) {
    index.facts.timeRate = Reduced(scale, unit);
    index.facts.nominalRate = index.facts.timeRate;
    starts = {};
    return;
  }
  index.facts.timeRate = Reduced(scale, 1);
  const int64_t total = std::max<int64_t>(starts.back(), 1);
  index.facts.nominalRate = Reduced(count * scale, total);
}

void TakeEntries(const AVStream& stream, TrackIndex& index) {
  const int entries = avformat_index_get_entries_count(&stream);
  if (entries <= 0)
    throw QELRuntimeError("the file has no index: it is truncated, or was never finished");
  if (entries > kMaxIndexEntries) {
    throw QELRuntimeError(QEL_TEXT("the index has " << entries << " samples, at most "
                                                    << kMaxIndexEntries << " are read"));
  }
  index.offsets.reserve(static_cast<size_t>(entries));
  index.sizes.reserve(static_cast<size_t>(entries));
  if (index.isAvi) {
    TakeAviEntries(stream, entries, index);
  } else {
    index.starts.reserve(static_cast<size_t>(entries) + 1);
    TakeMovEntries(stream, entries, index);
    SettleRate(stream, index);
  }
}

TrackIndex::Sample FirstWholeSample(const TrackIndex& index, int64_t fileSize) {
  for (int64_t i = 0; i < index.Count(); ++i) {
    const TrackIndex::Sample sample = index.At(i);
    if (sample.size != 0 && sample.offset >= 0 && sample.offset <= fileSize - sample.size)
      return sample;
  }
  throw QELRuntimeError(QEL_TEXT("the file is truncated: none of its "
                                 << index.Count() << " samples lies inside its " << fileSize
                                 << " bytes"));
}

std::optional<JpegFacts> LookAtPicture(ReadAheadCache& file, const TrackIndex::Sample& sample) {
  for (int64_t wanted = kFirstPictureHeadBytes; wanted <= kMaxPictureHeadBytes; wanted *= 4) {
    std::vector<uint8_t> head(static_cast<size_t>(std::min(wanted, int64_t{sample.size})));
    file.ReadExactly(sample.offset, head);
    const auto facts = ReadJpegFacts(head);
    if (facts || int64_t{sample.size} <= wanted)
      return facts;
  }
  return std::nullopt;
}

bool IsAboutHalf(int height, int frameHeight) {
  return frameHeight > 0 && 8 * height >= 3 * frameHeight && 8 * height <= 5 * frameHeight;
}

bool FileSaysBottomFirst(const AVCodecParameters& parameters) {
  return parameters.field_order == AV_FIELD_BB || parameters.field_order == AV_FIELD_BT;
}

void TakePictureFacts(ReadAheadCache& file, const AVCodecParameters& parameters,
                      TrackIndex& index) {
  using enum FieldOrder;
  const auto facts = LookAtPicture(file, FirstWholeSample(index, file.Size()));
  // The container's size is the best there is for a damaged first picture, or one without lines.
  index.facts.width = facts && facts->width != 0 ? facts->width : parameters.width;
  index.facts.height = facts && facts->height != 0 ? facts->height : parameters.height;
  if (index.facts.width <= 0 || index.facts.height <= 0)
    throw QELRuntimeError("neither the file nor its first picture says how large the pictures are");
  if (!facts)
    return;
  if (facts->polarity != FieldPolarity::Frame)
    index.facts.fieldOrder = facts->polarity == FieldPolarity::Even ? BottomFirst : TopFirst;
  else if (IsAboutHalf(facts->height, parameters.height))
    index.facts.fieldOrder = FileSaysBottomFirst(parameters) ? BottomFirst : TopFirst;
  index.facts.isBottomStoredFirst = index.facts.fieldOrder == BottomFirst;
  if (index.facts.fieldOrder != Progressive) {
    index.facts.fieldOrderFrom = facts->polarity != FieldPolarity::Frame
                                     ? "the mark of the first picture"
                                     : "the header and the height of the first picture";
  }
}

}  // namespace

std::optional<int64_t> TrackIndex::Find(const MediaTime& time) const {
  __extension__ using Wide = __int128;  // 63 + 32 + 32 bits at most
  const EditRate& rate = time.GetEditRate();
  if (rate._numerator == 0 || rate._denominator == 0) {
    throw QELRuntimeError(QEL_TEXT("cannot seek at an edit rate of "
                                   << rate._numerator << "/" << rate._denominator
                                   << ": both parts must be above zero"));
  }
  if (time.GetTimeNumber() < 0)
    return std::nullopt;
  const Wide units = Wide{time.GetTimeNumber()} * rate._denominator * facts.timeRate._numerator /
                     (Wide{rate._numerator} * facts.timeRate._denominator);
  if (units >= Start(Count()))
    return std::nullopt;
  if (starts.empty())
    return static_cast<int64_t>(units);
  const auto next = std::upper_bound(starts.begin(), starts.end() - 1, static_cast<int64_t>(units));
  return std::distance(starts.begin(), next) - 1;
}

TrackIndex ReadTrackIndex(IFileBytes& bytes) {
  ReadAheadCache file(bytes);
  TrackIndex index;
  index.isAvi = IsAvi(file);
  index.facts.container = index.isAvi ? "AVI" : "MOV";
  const AvDemuxer demuxer = OpenDemuxer(file, index.isAvi);
  const AVStream& stream = demuxer.MotionJpegStream();
  index.streamNumber = stream.index;
  TakeEntries(stream, index);
  TakePictureFacts(file, *stream.codecpar, index);
  index.facts.isVariableRate = !index.starts.empty();
  index.facts.announcedSamples = std::max<int64_t>(stream.nb_frames, 0);
  index.facts.missing = std::count(index.sizes.begin(), index.sizes.end(), uint32_t{0});
  index.facts.indexRequests = file.Requests();
  index.facts.indexBytes = file.BytesRead();
  return index;
}

}  // namespace qel
