#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace Moravel::Play {

// Makes the folder if it is not there. Throws OutputError when nothing can be written to it.
void MakeOutputFolder(const std::filesystem::path& folder);

// "000012", for names that sort as the samples do.
std::string SixDigits(int64_t sampleNumber);

}  // namespace Moravel::Play
