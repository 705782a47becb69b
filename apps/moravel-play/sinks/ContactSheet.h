#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "sinks/CairoSurface.h"
#include "sinks/Picture.h"

namespace Moravel::Play {

// An overview of what was played, as one PNG file: for each track and size a section with pictures
// spread evenly over the play sequence. It holds the sheet, never the pictures.
class ContactSheet : public IPictureSink {
 public:
  // The tracks outlive the sheet.
  ContactSheet(const std::filesystem::path& path, const std::vector<const Track*>& tracks);
  // Frees the fonts that the drawing library keeps: there is one sheet at a time.
  ~ContactSheet() override;

  void Write(const Picture& picture) override;
  void Finish() override;

 private:
  // The pictures of one track in one size. Samples are spread evenly; of each, both fields may be
  // shown.
  struct Section {
    const Track* track;
    Size size;
    int samples;
    Size thumbnail;
    int top;  // on the sheet

    int Cells() const { return samples * track->picturesPerSample; }
    int Height() const;
    int64_t PositionOfSample(int sample) const;
    // The cell that shows the picture, or -1.
    int CellOf(const Picture& picture) const;
    // The left upper corner of a cell's thumbnail on the sheet.
    int CellLeft(int cell) const;
    int CellTop(int cell) const;
  };

  void LayOut(const std::vector<const Track*>& tracks);
  void DrawHead(const Section& section);
  void DrawEmptyCell(const Section& section, int cell);
  void DrawCaption(const Section& section, int cell, const Picture& picture);
  void DrawText(const std::string& text, double x, double y, double size, double brightness,
                bool bold);

  const std::filesystem::path path_;
  std::vector<Section> sections_;  // constant after construction
  size_t sectionsLeftOut_ = 0;

  struct Destroy {
    void operator()(cairo_t* context) const { cairo_destroy(context); }
  };
  std::mutex sheetAccess_;  // guards all below
  std::unique_ptr<CairoSurface> sheet_;
  std::unique_ptr<cairo_t, Destroy> pen_;
};

}  // namespace Moravel::Play
