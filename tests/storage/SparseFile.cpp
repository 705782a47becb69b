#include "SparseFile.h"

#include <fstream>

namespace Moravel::Test {
namespace {

Bytes8 Chunk(std::string_view type, const Bytes8& content) {
  return Writer(false).Text(type).U32({content.size()}).Append(content).bytes;
}

Bytes8 List(std::string_view type, std::initializer_list<Bytes8> chunks) {
  Writer content(false);
  content.Text(type);
  for (const Bytes8& chunk : chunks)
    content.Append(chunk);
  return Chunk("LIST", content.bytes);
}

Bytes8 Box(std::string_view type, std::initializer_list<Bytes8> boxes) {
  Writer content(true);
  for (const Bytes8& box : boxes)
    content.Append(box);
  return Writer(true).U32({content.bytes.size() + 8}).Text(type).Append(content.bytes).bytes;
}

Bytes8 FirstAviSample(const SparseTrack& track, const Bytes8& picture) {
  return Writer(false).Text("00dc").U32({track.sampleSize}).Append(picture).bytes;
}

// The header of an AVI file of 64x48 pixels at 25 pictures a second.
Bytes8 AviHeader(const SparseTrack& track, const Bytes8& superIndex) {
  const auto count = static_cast<uint64_t>(track.samples);
  const Bytes8 avih = Chunk(
      "avih", Writer(false).U32({40000, 0, 0, 0x10, count, 0, 1, 0, 64, 48, 0, 0, 0, 0}).bytes);
  const Bytes8 strh = Chunk(
      "strh", Writer(false).Text("vidsMJPG").U32({0, 0, 0, 1, 25, 0, count, 0, 0, 0, 0, 0}).bytes);
  const Bytes8 strf = Chunk(
      "strf", Writer(false).U32({40, 64, 48}).U16({1, 24}).Text("MJPG").U32({0, 0, 0, 0, 0}).bytes);
  return List("hdrl", {avih, List("strl", {strh, strf, superIndex})});
}

}  // namespace

void SparseFile::Save(const std::filesystem::path& file) const {
  std::ofstream out(file, std::ios::binary);
  for (const auto& [offset, part] : parts_) {
    out.seekp(offset);
    out.write(reinterpret_cast<const char*>(part.data()),
              static_cast<std::streamsize>(part.size()));
  }
  out.close();
  std::filesystem::resize_file(file, static_cast<uintmax_t>(size_));
}

SparseTrackFile MakeSparseAvi(const SparseTrack& track, const Bytes8& picture) {
  constexpr int64_t kMovi = 4096;  // where the first one's LIST begins
  SparseTrackFile made;
  const int64_t perSegment = track.samples / track.segments;
  const int64_t segmentBytes = perSegment * track.stride + (int64_t{1} << 20);
  Writer superIndex(false);
  superIndex.U16({4, 0}).U32({static_cast<uint64_t>(track.segments)}).Text("00dc").U32({0, 0, 0});
  Writer idx1(false);
  for (int segment = 0; segment < track.segments; ++segment) {
    const int64_t base = kMovi + 12 + segment * segmentBytes;
    Writer ix(false);
    ix.U16({2, 0x100}).U32({static_cast<uint64_t>(perSegment)}).Text("00dc");
    ix.Number(static_cast<uint64_t>(base), 8).U32({0});
    for (int64_t i = 0; i < perSegment; ++i) {
      const auto at = static_cast<uint64_t>(i * track.stride);
      if (track.segments > 1)
        ix.U32({at + 8, track.sampleSize});
      else
        idx1.Text("00dc").U32({0x10, at + 4, track.sampleSize});
    }
    const int64_t ixAt = base + perSegment * track.stride;
    superIndex.Number(static_cast<uint64_t>(ixAt), 8)
        .U32({ix.bytes.size() + 8, static_cast<uint64_t>(perSegment)});
    if (track.segments > 1) {
      made.indexBytes += static_cast<int64_t>(ix.bytes.size());
      made.file.Put(ixAt, Chunk("ix00", ix.bytes));
    }
  }
  const Bytes8 header =
      AviHeader(track, track.segments > 1 ? Chunk("indx", superIndex.bytes) : Bytes8());
  const auto junk = static_cast<uint64_t>(kMovi) - 12 - header.size() - 8;
  const auto moviBytes = static_cast<uint64_t>(4 + perSegment * track.stride);
  Writer start(false);
  start.Text("RIFF").U32({kMovi + moviBytes}).Text("AVI ").Append(header);
  start.Append(Chunk("JUNK", Bytes8(junk))).Text("LIST").U32({moviBytes}).Text("movi");
  made.file.Put(0, start.bytes);
  made.file.Put(kMovi + 12, FirstAviSample(track, picture));
  if (track.segments == 1) {
    made.indexBytes = static_cast<int64_t>(idx1.bytes.size());
    made.file.Put(kMovi + 8 + static_cast<int64_t>(moviBytes), Chunk("idx1", idx1.bytes));
  }
  return made;
}

SparseTrackFile MakeSparseMov(const SparseTrack& track, const Bytes8& picture) {
  const auto count = static_cast<uint64_t>(track.samples);
  const int64_t mediaBytes = track.samples * track.stride + 16;
  const int64_t mediaAt = track.indexFirst ? int64_t{4} << 20 : 0;
  Writer stsz(true);
  stsz.U32({0, track.equalSizes ? track.sampleSize : 0, count});
  Writer co64(true);
  co64.U32({0, track.equalSizes ? 1 : count});
  for (uint64_t i = 0; i < (track.equalSizes ? 1 : count); ++i) {
    co64.Number(static_cast<uint64_t>(mediaAt + 16) + i * static_cast<uint64_t>(track.stride), 8);
    if (!track.equalSizes)
      stsz.U32({track.sampleSize});
  }
  const auto full = [](std::string_view type, const Writer& content) {
    return Box(type, {content.bytes});
  };
  Writer entry(true);  // of 64x48 pixels
  entry.U32({86}).Text("jpeg").U32({0}).U16({0, 1}).U32({0, 0, 0, 0}).U16({64, 48});
  entry.U32({72 << 16, 72 << 16, 0}).U16({1}).Append(Bytes8(32)).U16({24, 0xFFFF});
  const Bytes8 stbl =
      Box("stbl", {full("stsd", Writer(true).U32({0, 1}).Append(entry.bytes)),
                   full("stts", Writer(true).U32({0, 1, count, 1})),
                   full("stsc", Writer(true).U32({0, 1, 1, track.equalSizes ? count : 1, 1})),
                   full("stsz", stsz), full("co64", co64)});
  const Bytes8 mdia =
      Box("mdia", {full("mdhd", Writer(true).U32({0, 0, 0, 25, count, 0})),
                   full("hdlr", Writer(true).U32({0}).Text("mhlrvide").Append(Bytes8(13))),
                   Box("minf", {stbl})});
  const Bytes8 moov =
      Box("moov", {full("mvhd", Writer(true).U32({0, 0, 0, 25, count}).Append(Bytes8(80))),
                   Box("trak", {mdia})});
  SparseTrackFile made;
  made.indexBytes = static_cast<int64_t>(moov.size());
  Writer media(true);
  media.U32({1}).Text("mdat").Number(static_cast<uint64_t>(mediaBytes), 8).Append(picture);
  made.file.Put(mediaAt, media.bytes);
  if (track.indexFirst) {
    made.file.Put(0, moov);
    const auto rest = static_cast<uint64_t>(mediaAt) - moov.size();
    made.file.Put(made.indexBytes, Writer(true).U32({rest}).Text("free").bytes);
    made.file.Put(mediaAt + mediaBytes, {0});
  } else {
    made.file.Put(mediaAt + mediaBytes, moov);
  }
  return made;
}

}  // namespace Moravel::Test
