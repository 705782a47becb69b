#include "command/OutputCheck.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <fstream>
#include <optional>
#include <string_view>
#include <utility>

#include "command/UsageError.h"

namespace Moravel::Play {

namespace {

namespace fs = std::filesystem;

// Where writing to a path ends: the file itself if it is there, else the place in a folder that it
// will have.
class Place {
 public:
  explicit Place(const fs::path& path) {
    struct stat facts = {};
    const int found = path == "-" ? ::fstat(STDOUT_FILENO, &facts) : ::stat(path.c_str(), &facts);
    if (found == 0) {
      file_ = {facts.st_dev, facts.st_ino};
      isNullDevice_ = S_ISCHR(facts.st_mode) && facts.st_rdev == makedev(1, 3);
    } else {
      std::error_code ignored;  // a path that cannot be followed is told when it is opened
      name_ = fs::weakly_canonical(FollowLinks(path), ignored);
    }
  }

  bool IsSameAs(const Place& other) const {
    return file_ ? file_ == other.file_ && !isNullDevice_ : !other.file_ && name_ == other.name_;
  }

 private:
  // A link to a file that is not there: opened for writing, it makes that file.
  static fs::path FollowLinks(fs::path path) {
    constexpr int kMaxLinks = 40;
    std::error_code error;
    for (int links = 0; links < kMaxLinks; ++links) {
      const fs::path target = fs::read_symlink(path, error);
      if (error)
        break;
      path = path.parent_path() / target;
    }
    return path;
  }

  std::optional<std::pair<dev_t, ino_t>> file_;
  bool isNullDevice_ = false;
  fs::path name_;
};

std::string NameOf(const OutputName& output) {
  return output.second == "-" ? output.first : output.first + " " + output.second.string();
}

// What is there already is replaced only if it is of the same kind, or empty.
void CheckReplaced(const OutputName& output) {
  const auto& [option, path] = output;
  const std::string_view start = option == "--y4m" ? "YUV4MPEG2" : "\x89PNG";
  std::error_code ignored;
  if (path == "-" || !fs::is_regular_file(path, ignored) || fs::file_size(path, ignored) == 0)
    return;
  std::string there(start.size(), '\0');
  std::ifstream file(path, std::ios::binary);
  if (file.read(there.data(), static_cast<std::streamsize>(there.size())) && there == start)
    return;
  throw UsageError(NameOf(output) + " would overwrite a file that is no " +
                   (option == "--y4m" ? "y4m video" : "PNG picture") + ": give another name");
}

}  // namespace

void CheckOutputs(const std::vector<fs::path>& inputs, const std::vector<OutputName>& outputs) {
  std::vector<std::pair<OutputName, Place>> places;
  places.reserve(outputs.size());
  for (const OutputName& output : outputs)
    places.emplace_back(output, Place(output.second));
  for (const fs::path& input : inputs) {
    const Place place(input);
    for (const auto& [output, outputPlace] : places) {
      if (outputPlace.IsSameAs(place)) {
        throw UsageError(NameOf(output) + " would overwrite the TRACK " + input.string() +
                         ": give another file");
      }
    }
  }
  for (auto one = places.begin(); one != places.end(); ++one) {
    for (auto other = one + 1; other != places.end(); ++other) {
      if (one->second.IsSameAs(other->second)) {
        throw UsageError(NameOf(one->first) + " and " + NameOf(other->first) +
                         " are the same file: give each its own");
      }
    }
  }
  for (const OutputName& output : outputs)
    CheckReplaced(output);
}

void CheckOutputFolder(const std::string& option, const fs::path& folder,
                       const std::string& extension, const std::vector<fs::path>& files) {
  for (const fs::path& file : files) {
    const fs::path place = file.has_parent_path() ? file.parent_path() : ".";
    if (file.filename().string().starts_with("track") && file.extension() == extension &&
        Place(place).IsSameAs(Place(folder))) {
      throw UsageError(option + " " + folder.string() + ": a picture might take the name of " +
                       file.string() + ": give another folder");
    }
  }
}

}  // namespace Moravel::Play
