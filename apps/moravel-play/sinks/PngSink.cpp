#include "sinks/PngSink.h"

#include <memory>

#include "sinks/OutputFile.h"
#include "sinks/OutputFolder.h"
#include "sinks/PixelConversion.h"
#include "sinks/PngFile.h"
#include "sinks/TrackLabel.h"

namespace Moravel::Play {

namespace {

constexpr int kBgrxBytes = 4;

std::string FileName(const Picture& picture) {
  const std::string field = FieldName(picture);
  return FileLabel(picture.track) + "-" + picture.size.ToString() + "-" +
         SixDigits(picture.sampleNumber) + (field.empty() ? "" : "-" + field) + ".png";
}

}  // namespace

PngSink::PngSink(const std::filesystem::path& folder) : folder_(folder) {
  MakeOutputFolder(folder_);
}

void PngSink::Write(const Picture& picture) {
  if (!picture.image)
    return;
  const Size size = {picture.image->GetWidth(), picture.image->GetHeight()};
  const int stride = size.width * kBgrxBytes;
  const auto pixels =
      std::make_unique_for_overwrite<uint8_t[]>(size_t(stride) * size_t(size.height));
  ConvertToBgrx(*picture.image, pixels.get(), stride);
  OutputFile file(folder_ / FileName(picture), OutputFile::IfThere::Replace);
  WritePng(file, pixels.get(), stride, size);
}

}  // namespace Moravel::Play
