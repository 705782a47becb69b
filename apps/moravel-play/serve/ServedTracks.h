#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <vector>

namespace Moravel::Play {

// The files to serve, by their track numbers: files as given, those of a folder that are AVI or MOV
// files by their names. A file of a folder whose name is a number has that number; the others take
// those that are left, from 1. Throws UsageError, which names the path, for what is neither file
// nor folder, a folder without such files, and a number that two files have.
std::map<int64_t, std::filesystem::path> FindTracks(
    const std::vector<std::filesystem::path>& paths);

}  // namespace Moravel::Play
