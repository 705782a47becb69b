#include "elements/storage/ReadPattern.h"

#include <algorithm>
#include <utility>

namespace qel {

void ReadPattern::Read(int64_t number) {
  const int64_t step = number - std::exchange(last_, number);
  if (step == 0)
    return;
  const bool turned = Step() != 0 && step == -step_;
  sinceTurn_ = turned ? 0 : std::min(sinceTurn_ + 1, kJogSamples);
  length_ = std::exchange(step_, step) == step ? length_ + 1 : 2;
}

void ReadPattern::Doubt() {
  length_ = std::min(length_, kLeast);
}

int64_t ReadPattern::Ahead() const {
  constexpr int64_t kFewest = 4;
  return Step() == 0 ? 0 : std::max(length_ / 10, kFewest);
}

}  // namespace qel
