#include "sinks/SheetDrawing.h"

#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "sinks/CairoSurface.h"
#include "sinks/SheetFont.h"
#include "sinks/SheetLayout.h"

namespace Moravel::Play {

namespace {

constexpr double kFrame = 4;  // around a damaged picture

struct Colour {
  double red, green, blue;
};
constexpr Colour kBackground = {0.09, 0.09, 0.09};
constexpr Colour kEmptyCell = {0.15, 0.15, 0.15};
constexpr Colour kBright = {0.95, 0.95, 0.95};
constexpr Colour kDim = {0.62, 0.62, 0.62};
constexpr Colour kWarning = {1.0, 0.67, 0.2};

struct DestroyPen {
  void operator()(cairo_t* pen) const { cairo_destroy(pen); }
};

// Frees the fonts and their caches.
struct FontsEnd {
  ~FontsEnd() {
    cairo_debug_reset_static_data();
    FcFini();
  }
};

int SheetWidth() {
  return 2 * kSheetMargin + kSheetColumns * kThumbnailWidth + (kSheetColumns - 1) * kSheetGap;
}

int SheetHeight(const std::vector<SheetSection>& sections) {
  int height = 2 * kSheetMargin - kSectionGap;
  for (const SheetSection& section : sections)
    height += SheetSectionHeight(section.thumbnail, static_cast<int>(section.cells.size()));
  return height;
}

class Drawing {
 public:
  explicit Drawing(Size size) : surface_(size), pen_(cairo_create(surface_.Get())) {
    Use(kBackground);
    cairo_paint(pen_.get());
  }

  void Draw(const SheetSection& section, int top) {
    Text(section.title, kSheetMargin, top + 32, 26, kBright, true);
    Text(section.facts, kSheetMargin, top + 62, 18, kDim);
    for (size_t i = 0; i < section.cells.size(); ++i) {
      const auto cell = static_cast<int>(i);
      Draw(section.cells[i], kSheetMargin + cell % kSheetColumns * (kThumbnailWidth + kSheetGap),
           top + kSectionHead + cell / kSheetColumns * (section.thumbnail.height + kCaptionHeight),
           section.thumbnail);
    }
  }

  DrawnSheet Take() && {
    CheckDrawing(cairo_status(pen_.get()), surface_.GetSize());
    pen_.reset();
    const auto surface = std::make_shared<CairoSurface>(std::move(surface_));
    surface->Flush();
    return {{surface, surface->Data()}, surface->Stride(), surface->GetSize()};
  }

 private:
  void Draw(const SheetCell& cell, int left, int top, Size size) {
    if (!cell.thumbnail) {
      Box(left, top, size, kEmptyCell);
      const int baseline = top + size.height / 2 + 6;
      Text(cell.state, left + (size.width - Width(cell.state, 18)) / 2, baseline, 18, kDim);
    } else {
      surface_.Flush();
      CopyRows(*cell.thumbnail, left, top, size);
      surface_.MarkDirty();
      if (!cell.state.empty())
        Frame(left, top, size);
    }
    const double baseline = top + size.height + 18;
    const double room = size.width - Width(cell.state, 14) - kSheetGap;
    Text(cell.caption, left, baseline, std::min(14.0, 14 * room / Width(cell.caption, 14)),
         cell.thumbnail ? kBright : kDim);
    Text(cell.state, left + size.width - Width(cell.state, 14), baseline, 14, kWarning);
  }

  void CopyRows(const qel::IBuffer& pixels, int left, int top, Size size) {
    const size_t rowBytes = size_t(size.width) * 4;
    for (int row = 0; row < size.height; ++row) {
      std::copy_n(pixels.GetInnerBuffer() + size_t(row) * rowBytes, rowBytes,
                  surface_.Data() + (top + row) * surface_.Stride() + left * 4);
    }
  }

  void Box(int left, int top, Size size, Colour colour) {
    Use(colour);
    cairo_rectangle(pen_.get(), left, top, size.width, size.height);
    cairo_fill(pen_.get());
  }

  void Frame(int left, int top, Size size) {
    Use(kWarning);
    cairo_set_line_width(pen_.get(), kFrame);
    cairo_rectangle(pen_.get(), left - kFrame / 2, top - kFrame / 2, size.width + kFrame,
                    size.height + kFrame);
    cairo_stroke(pen_.get());
  }

  void Font(const std::string& family, double size, bool bold) {
    cairo_select_font_face(pen_.get(), family.c_str(), CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(pen_.get(), size);
  }

  double Width(const std::string& text, double size) {
    double width = 0;
    for (const FontRun& run : FontRunsOf(text, false)) {
      cairo_text_extents_t extents;
      Font(run.family, size, false);
      cairo_text_extents(pen_.get(), run.text.c_str(), &extents);
      width += extents.x_advance;
    }
    return width;
  }

  void Text(const std::string& text, double x, double y, double size, Colour colour,
            bool bold = false) {
    Use(colour);
    cairo_move_to(pen_.get(), x, y);
    for (const FontRun& run : FontRunsOf(text, bold)) {
      Font(run.family, size, bold);
      cairo_show_text(pen_.get(), run.text.c_str());  // ends where the next one begins
    }
  }

  void Use(Colour colour) {
    cairo_set_source_rgb(pen_.get(), colour.red, colour.green, colour.blue);
  }

  CairoSurface surface_;
  std::unique_ptr<cairo_t, DestroyPen> pen_;
};

}  // namespace

}  // namespace Moravel::Play

extern "C" void MoravelDrawSheet(const std::vector<Moravel::Play::SheetSection>& sections,
                                 Moravel::Play::DrawnSheet& sheet) {
  using namespace Moravel::Play;
  const FontsEnd fontsEnd;
  Drawing drawing({SheetWidth(), SheetHeight(sections)});
  int top = kSheetMargin;
  for (const SheetSection& section : sections) {
    drawing.Draw(section, top);
    top += SheetSectionHeight(section.thumbnail, static_cast<int>(section.cells.size()));
  }
  sheet = std::move(drawing).Take();
}
