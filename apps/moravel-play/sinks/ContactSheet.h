#pragma once

#include <deque>
#include <filesystem>
#include <mutex>

#include "sinks/Picture.h"
#include "sinks/SheetModule.h"

namespace Moravel::Play {

// An overview of what was played, as one PNG file: for each track and size a section with pictures
// spread evenly over the play sequence. It holds small copies of the pictures that it shows, does
// nothing with the others, and draws at the end.
class ContactSheet : public IPictureSink {
 public:
  // So many tracks and sizes are to come; the more, the fewer pictures are shown of each.
  ContactSheet(const std::filesystem::path& path, size_t sections);

  void Begin(const Track& track) override;
  void Write(const Picture& picture) override;
  void Finish() override;

 private:
  // Samples are spread evenly; of each, both fields may be shown.
  struct Section {
    const Track* track = nullptr;
    Size size;
    int samples = 0;
    SheetSection drawn;

    int64_t PositionOfSample(int sample) const;
    // The cell that shows the picture; null when none does. Each belongs to one picture.
    SheetCell* CellOf(const Picture& picture);
  };

  void AddSection(const Track& track, Size size);
  Section* Find(const Picture& picture);
  int CellsOfSection() const { return sectionsToCome_ == 1 ? 24 : sectionsToCome_ <= 4 ? 12 : 6; }

  const std::filesystem::path path_;
  const size_t sectionsToCome_;
  const SheetModule module_;

  std::mutex sectionsAccess_;  // guards all below, but not what is in a cell
  std::deque<Section> sections_;
  int height_ = 0;
  size_t sectionsLeftOut_ = 0;
};

}  // namespace Moravel::Play
