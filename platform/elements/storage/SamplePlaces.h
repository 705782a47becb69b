#pragma once

#include <cstdint>
#include <vector>

namespace qel {

// Where the samples of a track lie in a file, in the order that they are shown. Samples of equal
// size that lie one behind the other are kept as one run, so that what a file merely announces
// takes no memory. A value; any number of threads may read one.
class SamplePlaces {
 public:
  struct Place {
    int64_t offset;
    uint32_t size;
  };

  // Samples from `first` on are those stored from `stored` on.
  struct ShownRange {
    int64_t first;
    int64_t stored;
  };

  // Appends samples of that size which lie one behind the other. Throws QELRuntimeError when there
  // are more than kMaxIndexEntries then. Offsets above kMaxFileOffset, where no file has bytes, are
  // taken as that.
  void Add(int64_t offset, uint32_t size, int64_t count = 1);

  // Shows these ranges of the samples one after the other, `count` samples in all.
  void Show(std::vector<ShownRange> ranges, int64_t count);

  // Gives up the memory that was kept for more samples.
  void Compact();

  int64_t Count() const { return shown_.empty() ? count_ : shownCount_; }
  Place At(int64_t number) const;
  // The first sample behind that one which does not lie, as large as it, behind the one before; up
  // to there each lies further on in the file.
  int64_t NextRun(int64_t number) const;
  // Stored samples without bytes.
  int64_t EmptyCount() const { return emptyCount_; }
  int64_t MemoryBytes() const;

 private:
  int64_t Stored(int64_t number) const;

  int64_t count_ = 0;  // that are stored
  int64_t emptyCount_ = 0;
  std::vector<int64_t> firsts_;  // the first sample of each run; empty while every run is of one
  std::vector<int64_t> offsets_;
  std::vector<uint32_t> sizes_;
  std::vector<ShownRange> shown_;  // empty: all as they are stored
  int64_t shownCount_ = 0;
};

}  // namespace qel
