#pragma once

#include <cstdint>
#include <limits>

namespace qel {

// Tells samples that are read at a constant distance, forward or backward, from single ones. A
// value.
class ReadPattern {
 public:
  // The sample that is read now. The same one again changes nothing.
  void Read(int64_t number);
  void Forget() { *this = ReadPattern(); }
  // As if the pattern had only begun.
  void Doubt();

  // The distance, 0 while there is none: two samples may lie anywhere by chance, the third begins
  // it.
  int64_t Step() const { return length_ >= kLeast ? step_ : 0; }
  // How many samples beyond the one that is read now may be asked for. What is wasted when the
  // pattern ends is no more than so many, or than a tenth of what was used.
  int64_t Ahead() const;
  // The reader went back and forth a short while ago.
  bool IsJog() const { return sinceTurn_ < kJogSamples; }

 private:
  static constexpr int64_t kLeast = 3;
  static constexpr int64_t kJogSamples = 128;

  int64_t last_ = std::numeric_limits<int64_t>::min() / 2;
  int64_t step_ = 0;
  int64_t length_ = 0;  // samples at that distance up to the last one
  int64_t sinceTurn_ = kJogSamples;
};

}  // namespace qel
