#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "elements/storage/SamplePlaces.h"
#include "elements/storage/SampleTimes.h"

namespace qel {

// The sample tables of a track ("stbl"): where its samples lie, and when they are shown. What is
// equal for many samples is kept as such. Throws QELRuntimeError when they are damaged.
struct MovTables {
  int64_t announced = 0;  // samples that have a size
  SamplePlaces places;
  SampleTimes times;  // as many
  std::vector<std::string> problems;
};

MovTables ReadMovTables(std::span<const uint8_t> stbl);

}  // namespace qel
