#include "sinks/ContactSheet.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "command/Problem.h"
#include "elements/mjpeg/BgraPicture.h"
#include "qelCore/Printable.h"
#include "sinks/OutputFile.h"
#include "sinks/PngFile.h"
#include "sinks/SheetLayout.h"
#include "sinks/TrackLabel.h"
#include "tracks/TrackTimes.h"

namespace Moravel::Play {

namespace {

constexpr int kMaxThumbnailHeight = 640;

const char* const kDot = "  \u00b7  ";

Size ThumbnailSize(const Track& track) {
  const auto [shapeWidth, shapeHeight] = track.DisplayShape();
  const int64_t height = kThumbnailWidth * shapeHeight / shapeWidth;
  return {kThumbnailWidth, static_cast<int>(std::clamp<int64_t>(height, 1, kMaxThumbnailHeight))};
}

// Files go by their name alone.
std::string Title(const Track& track) {
  return qel::Printable(std::filesystem::path(track.name).filename().string());
}

std::string Facts(const Track& track, const Size& size) {
  const Size own = track.PictureSize();
  const std::string from = size == own ? "" : " from " + own.ToString();
  return size.ToString() + from + kDot + ToRateText(track) + kDot +
         (track.interlaced ? "interlaced" : "progressive") + kDot +
         std::to_string(track.sequence.Count()) + " of " + std::to_string(track.sampleCount) +
         " samples played";
}

std::string Caption(const Picture& picture) {
  const std::string field = FieldName(picture);
  return CaptionLabel(picture.track) + "   " + ToTimeCode(picture.track, picture.sampleNumber) +
         (field.empty() ? "" : "   " + field);
}

// The sheet is written at the end: that it cannot be is told at the beginning.
void CheckWritable(const std::filesystem::path& path) {
  std::error_code unreachable;
  const bool isThere = std::filesystem::exists(path, unreachable);
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
  int error = unreachable.value();
  if (error == 0 && isThere && std::filesystem::is_directory(path))
    error = EISDIR;
  if (error == 0 &&
      (isThere ? ::access(path.c_str(), W_OK) : ::access(folder.c_str(), W_OK | X_OK)) != 0)
    error = errno;
  if (error != 0) {
    throw OutputError(path.string() +
                      ": cannot be written: " + std::generic_category().message(error));
  }
}

}  // namespace

int64_t ContactSheet::Section::PositionOfSample(int sample) const {
  return track->sequence.Count() * sample / samples;
}

SheetCell* ContactSheet::Section::CellOf(const Picture& picture) {
  const int64_t count = track->sequence.Count();
  const auto sample = static_cast<int>((picture.position * samples + count - 1) / count);
  if (sample >= samples || PositionOfSample(sample) != picture.position)
    return nullptr;
  const int64_t inSample = picture.PlayIndex() - picture.position * track->picturesPerSample;
  return &drawn.cells[size_t(sample) * size_t(track->picturesPerSample) + size_t(inSample)];
}

ContactSheet::ContactSheet(const std::filesystem::path& path, size_t sections)
    : path_(path), sectionsToCome_(sections) {
  CheckWritable(path_);
}

void ContactSheet::Begin(const Track& track) {
  const std::lock_guard<std::mutex> lock(sectionsAccess_);
  for (const Size& size : track.sizes)
    AddSection(track, size);
}

void ContactSheet::AddSection(const Track& track, Size size) {
  const int samples = static_cast<int>(
      std::min<int64_t>(CellsOfSection() / track.picturesPerSample, track.sequence.Count()));
  const int cells = samples * track.picturesPerSample;
  const Size thumbnail = ThumbnailSize(track);
  if (height_ + SheetSectionHeight(thumbnail, cells) > kMaxSheetHeight) {
    ++sectionsLeftOut_;
    return;
  }
  height_ += SheetSectionHeight(thumbnail, cells);
  sections_.push_back({&track,
                       size,
                       samples,
                       {Title(track), Facts(track, size), thumbnail,
                        std::vector<SheetCell>(static_cast<size_t>(cells))}});
}

ContactSheet::Section* ContactSheet::Find(const Picture& picture) {
  const std::lock_guard<std::mutex> lock(sectionsAccess_);
  for (Section& section : sections_) {
    if (section.track == &picture.track && section.size == picture.size)
      return &section;
  }
  return nullptr;
}

void ContactSheet::Write(const Picture& picture) {
  Section* const section = Find(picture);
  SheetCell* const cell = section == nullptr ? nullptr : section->CellOf(picture);
  if (cell == nullptr)
    return;
  if (picture.image) {
    const auto [width, height] = section->drawn.thumbnail;
    cell->thumbnail = qel::mjpeg::MakeBgraPicture(*picture.image, {width, height});
  }
  cell->caption = Caption(picture);
  cell->state = picture.state == PictureState::Fine ? "" : NameOf(picture.state);
}

// In the order of the command line, whatever began first.
void ContactSheet::Finish() {
  const std::lock_guard<std::mutex> lock(sectionsAccess_);
  if (sections_.empty())
    return;
  if (sectionsLeftOut_ != 0) {
    PrintProblem(path_.string() + ": " + std::to_string(sectionsLeftOut_) +
                 " more tracks and sizes do not fit on the sheet");
  }
  std::stable_sort(sections_.begin(), sections_.end(), [](const Section& a, const Section& b) {
    return a.track->index < b.track->index;
  });
  std::vector<SheetSection> drawn;
  for (Section& section : sections_)
    drawn.push_back(std::move(section.drawn));
  const DrawnSheet sheet = module_.Draw(drawn);
  OutputFile file(path_);
  WritePng(file, sheet.pixels.get(), sheet.stride, sheet.size);
}

}  // namespace Moravel::Play
