#include "sinks/PngSink.h"

#include "elements/mjpeg/BgraPicture.h"
#include "sinks/OutputFile.h"
#include "sinks/OutputFolder.h"
#include "sinks/PngFile.h"
#include "sinks/TrackLabel.h"

namespace Moravel::Play {

namespace {

constexpr int kBgraBytes = 4;  // a pixel

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
  const qel::BufferConstPtr pixels =
      qel::mjpeg::MakeBgraPicture(*picture.image, {size.width, size.height});
  OutputFile file(folder_ / FileName(picture), OutputFile::IfThere::Replace);
  WritePng(file, pixels->GetInnerBuffer(), size.width * kBgraBytes, size);
}

}  // namespace Moravel::Play
