#pragma once

#include <cstdint>
#include <vector>

namespace Moravel::Play {

// The segments of a JPEG file with the typical Huffman tables (ITU-T T.81, annex K.3), which motion
// JPEG takes for granted where a picture has none. Any thread.
const std::vector<uint8_t>& StandardHuffmanTables();

}  // namespace Moravel::Play
