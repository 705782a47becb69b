#pragma once

#include <cstdint>
#include <vector>

#include "elements/storage/ReadAheadCache.h"

namespace qel {

// A small MOV file that holds the header of the given one ("moov") and nothing else, its boxes
// reduced to those that describe samples of video tracks ("QuickTime File Format"; ISO/IEC
// 14496-12). What is left is bounded: every table lies inside the file and no more samples are
// announced than kMaxIndexEntries. So whoever parses it does work in proportion to its size.
// Throws QELRuntimeError when there is no such header.
std::vector<uint8_t> ExtractMovHeader(ReadAheadCache& file);

}  // namespace qel
