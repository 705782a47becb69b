#include "serve/ServedTracks.h"

#include <algorithm>
#include <optional>
#include <string>
#include <system_error>

#include "command/TextParts.h"
#include "command/UsageError.h"

namespace Moravel::Play {

namespace {

namespace fs = std::filesystem;

// One way only to write each number.
std::optional<int64_t> NumberOf(const fs::path& file) {
  const std::string name = file.filename();
  const auto number = ParseDigits(name, INT64_MAX);
  return number && std::to_string(*number) == name ? number : std::nullopt;
}

bool IsClip(const fs::path& file) {
  std::string extension = file.extension();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  return extension == ".avi" || extension == ".mov";
}

std::vector<fs::path> FilesOf(const fs::path& folder) {
  std::vector<fs::path> files;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const fs::path& file = entry->path();
    std::error_code ignored;
    if ((IsClip(file) || NumberOf(file)) && entry->is_regular_file(ignored))
      files.push_back(file);
  }
  if (error)
    throw UsageError(folder.string() + ": " + error.message());
  if (files.empty())
    throw UsageError(folder.string() + ": no AVI or MOV file in this folder");
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace

std::map<int64_t, fs::path> FindTracks(const std::vector<fs::path>& paths) {
  std::map<int64_t, fs::path> tracks;
  std::vector<fs::path> unnumbered;
  for (const fs::path& path : paths) {
    if (path.empty())
      throw UsageError("the name of a file or folder must not be empty");
    std::error_code error;
    if (!fs::is_directory(path, error)) {
      unnumbered.push_back(path);
      continue;
    }
    for (const fs::path& file : FilesOf(path)) {
      const auto number = NumberOf(file);
      if (!number)
        unnumbered.push_back(file);
      else if (const auto [other, isNew] = tracks.try_emplace(*number, file); !isNew)
        throw UsageError(file.string() + ": " + other->second.string() + " has the same number");
    }
  }
  int64_t next = 1;
  for (const fs::path& file : unnumbered) {
    while (tracks.contains(next))
      ++next;
    tracks[next] = file;
  }
  return tracks;
}

}  // namespace Moravel::Play
