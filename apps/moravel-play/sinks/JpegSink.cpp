#include "sinks/JpegSink.h"

#include <optional>
#include <span>

#include "elements/jpeg/JpegMarkers.h"
#include "sinks/HuffmanTables.h"
#include "sinks/OutputFile.h"
#include "sinks/OutputFolder.h"
#include "sinks/TrackLabel.h"

namespace Moravel::Play {

namespace {

std::string FileName(const StoredSample& sample, const qel::ISample& part) {
  std::string field;
  if (sample.track.interlaced)
    field = part.GetChannelInfo()->GetChannels().front() == 1 ? "-bottom" : "-top";
  return FileLabel(sample.track) + "-" + SixDigits(sample.sampleNumber) + field + ".jpg";
}

// Where the tables are to be put in that a picture leaves out; nothing when it has its own.
std::optional<size_t> PlaceOfMissingTables(std::span<const uint8_t> picture) {
  qel::JpegMarkers markers(picture);
  while (markers.Next() && markers.Marker() != qel::kJpegEndOfImage) {
    const uint8_t marker = markers.Marker();
    if (marker == qel::kJpegStartOfScan)
      return markers.Offset();
    const bool isArithmetic =
        qel::IsJpegFrameHeader(marker) && marker >= qel::kJpegFirstArithmeticFrame;
    if (marker == qel::kJpegHuffmanTables || isArithmetic)
      return std::nullopt;
    markers.TakeSegment();
  }
  return std::nullopt;
}

void WriteJpeg(OutputFile& file, std::span<const uint8_t> bytes) {
  bytes = qel::FromStartOfImage(bytes);
  if (const std::optional<size_t> place = PlaceOfMissingTables(bytes)) {
    file.Write(bytes.first(*place));
    file.Write(StandardHuffmanTables());
    bytes = bytes.subspan(*place);
  }
  file.Write(bytes);
}

}  // namespace

JpegSink::JpegSink(const std::filesystem::path& folder) : folder_(folder) {
  MakeOutputFolder(folder_);
}

void JpegSink::WriteStored(const StoredSample& sample) {
  for (const qel::SampleConstPtr& part : sample.container->GetAllSamples()) {
    const qel::BufferConstPtr data = part ? part->GetData() : nullptr;
    if (!data)
      continue;
    OutputFile file(folder_ / FileName(sample, *part), OutputFile::IfThere::Replace);
    WriteJpeg(file, {data->GetInnerBuffer(), data->GetDataSize()});
    file.Close();
  }
}

}  // namespace Moravel::Play
