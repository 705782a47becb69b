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
#include "sinks/PngFile.h"
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
  return kHeadHeight + cell / kColumns * (thumbnail.height + kCaptionHeight);
}

ContactSheet::ContactSheet(const std::filesystem::path& path, size_t sections)
    : path_(path), sectionsToCome_(sections), height_(2 * kMargin - kSectionGap) {
  CheckWritable(path_);
}

ContactSheet::~ContactSheet() {
  sections_.clear();
  cairo_debug_reset_static_data();
  FcFini();
}

void ContactSheet::Begin(const Track& track) {
  const std::lock_guard<std::mutex> lock(sheetAccess_);
  for (const Size& size : track.sizes)
    AddSection(track, size);
}

void ContactSheet::AddSection(const Track& track, const Size& size) {
  const int cells = CellsOfSection() / track.picturesPerSample;
  Section section;
  section.track = &track;
  section.size = size;
  section.samples = static_cast<int>(std::min<int64_t>(cells, track.sequence.Count()));
  section.thumbnail = ThumbnailSize(track.DisplayShape());
  if (height_ + section.Height() > kMaxSheetHeight) {
    ++sectionsLeftOut_;
    return;
  }
  height_ += section.Height();
  section.surface = std::make_unique<CairoSurface>(Size{kSheetWidth, section.Height()});
  section.pen.reset(cairo_create(section.surface->Get()));
  cairo_set_source_rgb(section.pen.get(), kBackground, kBackground, kBackground);
  cairo_paint(section.pen.get());
  section.DrawHead();
  for (int cell = 0; cell < section.Cells(); ++cell)
    section.DrawEmptyCell(cell);
  sections_.push_back(std::move(section));
}

void ContactSheet::Section::DrawText(const std::string& text, double x, double y, double points,
                                     double brightness, bool bold) const {
  cairo_select_font_face(pen.get(), "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                         bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
  cairo_set_font_size(pen.get(), points);
  cairo_set_source_rgb(pen.get(), brightness, brightness, brightness);
  cairo_move_to(pen.get(), x, y);
  cairo_show_text(pen.get(), text.c_str());
}

void ContactSheet::Section::DrawHead() const {
  DrawText(Title(*track, pen.get()), kMargin, 32, 26, kBright, true);
  DrawText(Head(*track, size), kMargin, 62, 18, kDim, false);
}

void ContactSheet::Section::DrawEmptyCell(int cell) const {
  cairo_set_source_rgb(pen.get(), kEmptyCell, kEmptyCell, kEmptyCell);
  cairo_rectangle(pen.get(), CellLeft(cell), CellTop(cell), thumbnail.width, thumbnail.height);
  cairo_fill(pen.get());
}

void ContactSheet::Section::DrawCaption(int cell, const Picture& picture) const {
  const double baseline = CellTop(cell) + thumbnail.height + 18;
  const std::string field = FieldName(picture);
  const std::string caption = "track " + std::to_string(picture.track.index) + "   " +
                              ToTimeCode(picture.track, picture.sampleNumber) + "   " +
                              size.ToString() + (field.empty() ? "" : "   " + field) +
                              (picture.image ? "" : "   not shown");
  DrawText(caption, CellLeft(cell), baseline, 14, picture.image ? kBright : kDim, false);
}

const ContactSheet::Section* ContactSheet::Find(const Picture& picture) {
  const std::lock_guard<std::mutex> lock(sheetAccess_);
  for (const Section& section : sections_) {
    if (section.track == &picture.track && section.size == picture.size)
      return &section;
  }
  return nullptr;
}

void ContactSheet::Write(const Picture& picture) {
  const Section* const section = Find(picture);
  const int cell = section == nullptr ? -1 : section->CellOf(picture);
  if (cell < 0)
    return;
  std::unique_ptr<CairoSurface> thumbnail;
  if (picture.image)
    thumbnail = std::make_unique<CairoSurface>(Shrink(*picture.image, section->thumbnail));
  const std::lock_guard<std::mutex> lock(sheetAccess_);
  if (thumbnail) {
    cairo_set_source_surface(section->pen.get(), thumbnail->Get(), section->CellLeft(cell),
                             section->CellTop(cell));
    cairo_paint(section->pen.get());
  }
  section->DrawCaption(cell, picture);
}

// In the order of the command line, whatever began first.
void ContactSheet::Finish() {
  const std::lock_guard<std::mutex> lock(sheetAccess_);
  if (sections_.empty())
    return;
  if (sectionsLeftOut_ != 0) {
    PrintProblem(path_.string() + ": " + std::to_string(sectionsLeftOut_) +
                 " more tracks and sizes do not fit on the sheet");
  }
  std::stable_sort(sections_.begin(), sections_.end(), [](const Section& a, const Section& b) {
    return a.track->index < b.track->index;
  });
  CairoSurface sheet(Size{kSheetWidth, height_});
  const Pen pen(cairo_create(sheet.Get()));
  cairo_set_source_rgb(pen.get(), kBackground, kBackground, kBackground);
  cairo_paint(pen.get());
  int top = kMargin;
  for (Section& section : sections_) {
    cairo_set_source_surface(pen.get(), section.surface->Get(), 0, top);
    cairo_paint(pen.get());
    top += section.Height();
  }
  sheet.Flush();
  OutputFile file(path_);
  WritePng(file, sheet.Data(), sheet.Stride(), sheet.GetSize());
}

}  // namespace Moravel::Play
