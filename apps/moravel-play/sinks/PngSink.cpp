#include "sinks/PngSink.h"

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <system_error>

#include "sinks/OutputFile.h"
#include "sinks/PixelConversion.h"
#include "sinks/PngFile.h"
#include "sinks/TrackLabel.h"

namespace Moravel::Play {

namespace {

constexpr int kBgrxBytes = 4;

std::string FileName(const Picture& picture) {
  char number[32];
  std::snprintf(number, sizeof number, "%06lld", static_cast<long long>(picture.sampleNumber));
  const std::string field = FieldName(picture);
  return FileLabel(picture.track) + "-" + picture.size.ToString() + "-" + number +
         (field.empty() ? "" : "-" + field) + ".png";
}

}  // namespace

PngSink::PngSink(const std::filesystem::path& folder) : folder_(folder) {
  std::error_code error;
  std::filesystem::create_directories(folder_, error);
  if (!error && ::access(folder_.c_str(), W_OK | X_OK) != 0)
    error = std::error_code(errno, std::generic_category());
  if (error)
    throw OutputError(folder_.string() + ": is no folder to write to: " + error.message());
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
