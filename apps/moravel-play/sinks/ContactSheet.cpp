#include "sinks/ContactSheet.h"

#include <fontconfig/fontconfig.h>
#include <libyuv.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "command/Problem.h"
#include "sinks/OutputFile.h"
#include "sinks/PixelConversion.h"
#include "tracks/TrackTimes.h"

namespace Moravel::Play {

namespace {

// Pixels.
constexpr int kMargin = 40;
constexpr int kGap = 16;
constexpr int kThumbnailWidth = 320;
constexpr int kMaxThumbnailHeight = 640;
constexpr int kCaptionHeight = 36;
constexpr int kHeadHeight = 84;
constexpr int kSectionGap = 24;
constexpr int kMaxSheetHeight = 30000;  // the drawing library ends at 32767

constexpr int kColumns = 6;
constexpr int kSheetWidth = 2 * kMargin + kColumns * kThumbnailWidth + (kColumns - 1) * kGap;

const char* const kDot = "  \u00b7  ";

constexpr double kBackground = 0.09;
constexpr double kEmptyCell = 0.15;
constexpr double kBright = 0.95;
constexpr double kDim = 0.62;

int CellsOfSection(size_t sections) {
  return sections == 1 ? 24 : sections <= 4 ? 12 : 6;
}

Size ThumbnailSize(const Size& shape) {
  const int64_t height = int64_t(kThumbnailWidth) * shape.height / shape.width;
  return {kThumbnailWidth, static_cast<int>(std::clamp<int64_t>(height, 1, kMaxThumbnailHeight))};
}

// Makes the picture as small as its thumbnail.
CairoSurface Shrink(const qel::IVideoSample& image, const Size& size) {
  CairoSurface full({image.GetWidth(), image.GetHeight()});
  full.Flush();
  ConvertToBgrx(image, full.Data(), full.Stride());
  CairoSurface small(size);
  small.Flush();
  libyuv::ARGBScale(full.Data(), full.Stride(), image.GetWidth(), image.GetHeight(), small.Data(),
                    small.Stride(), size.width, size.height, libyuv::kFilterBox);
  small.MarkDirty();
  return small;
}

// Files go by their name alone. File names may hold any bytes; text to draw is UTF-8.
std::string Title(const Track& track, cairo_t* pen) {
  std::string title = std::filesystem::path(track.name).filename().string();
  cairo_text_extents_t extents;
  const std::unique_ptr<cairo_t, decltype(&cairo_destroy)> trial(
      cairo_create(cairo_get_target(pen)), &cairo_destroy);
  cairo_text_extents(trial.get(), title.c_str(), &extents);
  if (cairo_status(trial.get()) != CAIRO_STATUS_SUCCESS)
    std::replace_if(
        title.begin(), title.end(), [](char c) { return (c & 0x80) != 0; }, '?');
  return title;
}

std::string Head(const Track& track, const Size& size) {
  const std::string from = size == track.ownSize ? "" : " from " + track.ownSize.ToString();
  return size.ToString() + from + kDot + ToRateText(track.sampleRate) + kDot +
         (track.interlaced ? "interlaced" : "progressive") + kDot +
         std::to_string(track.sequence.Count()) + " of " + std::to_string(track.sampleCount) +
         " samples played";
}

// The sheet is written at the end: that it cannot be is told at the beginning.
void CheckWritable(const std::filesystem::path& path) {
  std::error_code unreachable;
  const bool isThere = std::filesystem::exists(path, unreachable);
  const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
  int error = 0;
  if (isThere ? ::access(path.c_str(), W_OK) : ::access(folder.c_str(), W_OK | X_OK))
    error = errno;
  else if (std::filesystem::is_directory(path))
    error = EISDIR;
  if (error != 0) {
    throw OutputError(path.string() +
                      ": cannot be written: " + std::generic_category().message(error));
  }
}

}  // namespace

int ContactSheet::Section::Height() const {
  const int rows = (Cells() + kColumns - 1) / kColumns;
  return kHeadHeight + rows * (thumbnail.height + kCaptionHeight) + kSectionGap;
}

int64_t ContactSheet::Section::PositionOfSample(int sample) const {
  return track->sequence.Count() * sample / samples;
}

int ContactSheet::Section::CellOf(const Picture& picture) const {
  const int64_t count = track->sequence.Count();
  const auto sample = static_cast<int>((picture.position * samples + count - 1) / count);
  if (sample >= samples || PositionOfSample(sample) != picture.position)
    return -1;
  return sample * track->picturesPerSample + (picture.bottom ? 1 : 0);
}

int ContactSheet::Section::CellLeft(int cell) const {
  return kMargin + cell % kColumns * (thumbnail.width + kGap);
}

int ContactSheet::Section::CellTop(int cell) const {
  return top + kHeadHeight + cell / kColumns * (thumbnail.height + kCaptionHeight);
}

ContactSheet::ContactSheet(const std::filesystem::path& path,
                           const std::vector<const Track*>& tracks)
    : path_(path) {
  CheckWritable(path_);
  LayOut(tracks);
  const int height = sections_.back().top + sections_.back().Height() + kMargin - kSectionGap;
  sheet_ = std::make_unique<CairoSurface>(Size{kSheetWidth, height});
  pen_.reset(cairo_create(sheet_->Get()));
  cairo_set_source_rgb(pen_.get(), kBackground, kBackground, kBackground);
  cairo_paint(pen_.get());
  for (const Section& section : sections_) {
    DrawHead(section);
    for (int cell = 0; cell < section.Cells(); ++cell)
      DrawEmptyCell(section, cell);
  }
}

ContactSheet::~ContactSheet() {
  pen_.reset();
  sheet_.reset();
  cairo_debug_reset_static_data();
  FcFini();
}

void ContactSheet::LayOut(const std::vector<const Track*>& tracks) {
  size_t sections = 0;
  for (const Track* track : tracks)
    sections += track->sizes.size();
  int top = kMargin;
  for (const Track* track : tracks) {
    for (const Size& size : track->sizes) {
      const int cells = CellsOfSection(sections) / track->picturesPerSample;
      const auto samples = static_cast<int>(std::min<int64_t>(cells, track->sequence.Count()));
      const Section section = {track, size, samples, ThumbnailSize(track->DisplayShape()), top};
      top += section.Height();
      if (top > kMaxSheetHeight) {
        ++sectionsLeftOut_;
        continue;
      }
      sections_.push_back(section);
    }
  }
}

void ContactSheet::DrawHead(const Section& section) {
  DrawText(Title(*section.track, pen_.get()), kMargin, section.top + 32, 26, kBright, true);
  DrawText(Head(*section.track, section.size), kMargin, section.top + 62, 18, kDim, false);
}

void ContactSheet::DrawEmptyCell(const Section& section, int cell) {
  cairo_set_source_rgb(pen_.get(), kEmptyCell, kEmptyCell, kEmptyCell);
  cairo_rectangle(pen_.get(), section.CellLeft(cell), section.CellTop(cell),
                  section.thumbnail.width, section.thumbnail.height);
  cairo_fill(pen_.get());
}

void ContactSheet::DrawCaption(const Section& section, int cell, const Picture& picture) {
  const double baseline = section.CellTop(cell) + section.thumbnail.height + 18;
  const std::string field = FieldName(picture);
  const std::string caption = "track " + std::to_string(picture.track.index) + "   " +
                              ToTimeCode(picture.track, picture.sampleNumber) + "   " +
                              section.size.ToString() + (field.empty() ? "" : "   " + field) +
                              (picture.image ? "" : "   not shown");
  DrawText(caption, section.CellLeft(cell), baseline, 14, picture.image ? kBright : kDim, false);
}

void ContactSheet::DrawText(const std::string& text, double x, double y, double size,
                            double brightness, bool bold) {
  cairo_t* const pen = pen_.get();
  cairo_select_font_face(pen, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                         bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(pen, size);
  cairo_set_source_rgb(pen, brightness, brightness, brightness);
  cairo_move_to(pen, x, y);
  cairo_show_text(pen, text.c_str());
}

void ContactSheet::Write(const Picture& picture) {
  for (const Section& section : sections_) {
    if (section.track != &picture.track || section.size != picture.size)
      continue;
    const int cell = section.CellOf(picture);
    if (cell < 0)
      return;
    std::unique_ptr<CairoSurface> thumbnail;
    if (picture.image)
      thumbnail = std::make_unique<CairoSurface>(Shrink(*picture.image, section.thumbnail));
    const std::lock_guard<std::mutex> lock(sheetAccess_);
    if (thumbnail) {
      cairo_set_source_surface(pen_.get(), thumbnail->Get(), section.CellLeft(cell),
                               section.CellTop(cell));
      cairo_paint(pen_.get());
    }
    DrawCaption(section, cell, picture);
    return;
  }
}

void ContactSheet::Finish() {
  const std::lock_guard<std::mutex> lock(sheetAccess_);
  if (sectionsLeftOut_ != 0) {
    PrintProblem(path_.string() + ": " + std::to_string(sectionsLeftOut_) +
                 " more tracks and sizes do not fit on the sheet");
  }
  sheet_->WritePng(path_);
}

}  // namespace Moravel::Play
