#pragma once

#include <deque>
#include <memory>
#include <mutex>

#include "sinks/CairoSurface.h"
#include "sinks/Picture.h"

namespace Moravel::Play {

// An overview of what was played, as one PNG file: for each track and size a section with pictures
// spread evenly over the play sequence. It holds the sheet, never the pictures.
class ContactSheet : public IPictureSink {
 public:
  // So many tracks and sizes are to come; the more, the fewer pictures are shown of each.
  ContactSheet(const std::filesystem::path& path, size_t sections);
  // Frees the fonts that the drawing library keeps: there is one sheet at a time.
  ~ContactSheet() override;

  void Begin(const Track& track) override;
  void Write(const Picture& picture) override;
  void Finish() override;

 private:
  struct Destroy {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
  };
  using Pen = std::unique_ptr<cairo_t, Destroy>;

  // The pictures of one track in one size. Samples are spread evenly; of each, both fields may be
  // shown.
  struct Section {
    const Track* track = nullptr;
    Size size;
    int samples = 0;
    Size thumbnail;
    std::unique_ptr<CairoSurface> surface;  // of the sheet's width
    Pen pen;

    int Cells() const { return samples * track->picturesPerSample; }
    int Height() const;
    int64_t PositionOfSample(int sample) const;
    // The cell that shows the picture, or -1.
    int CellOf(const Picture& picture) const;
    // The left upper corner of a cell's thumbnail.
    int CellLeft(int cell) const;
    int CellTop(int cell) const;

    void DrawHead() const;
    void DrawEmptyCell(int cell) const;
    void DrawCaption(int cell, const Picture& picture) const;
    void DrawText(const std::string& text, double x, double y, double points, double brightness,
                  bool bold) const;
  };

  void AddSection(const Track& track, const Size& size);
  const Section* Find(const Picture& picture);
  int CellsOfSection() const { return sectionsToCome_ == 1 ? 24 : sectionsToCome_ <= 4 ? 12 : 6; }

  const std::filesystem::path path_;
  const size_t sectionsToCome_;

  std::mutex sheetAccess_;  // guards all below, and drawing
  std::deque<Section> sections_;
  int height_;  // of the sheet, as far as it is known
  size_t sectionsLeftOut_ = 0;
};

}  // namespace Moravel::Play
