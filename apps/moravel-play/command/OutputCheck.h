#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace Moravel::Play {

// The name of an option, and the file that it was given. "-" is standard output.
using OutputName = std::pair<std::string, std::filesystem::path>;

// Throws UsageError when one of the outputs is one of the inputs, or two outputs are the same file,
// by name, through links or as descriptors ("/dev/fd/1"), or when a file that is there already is
// no picture or video of the kind that the option writes: "--contact-sheet *.avi" names a clip. The
// null device may be given to all. Opens nothing for writing.
void CheckOutputs(const std::vector<std::filesystem::path>& inputs,
                  const std::vector<OutputName>& outputs);

// The same for a folder in which files will be named "trackN-...", each with the extension, in
// place of what has that name: none of the files given may be there under such a name.
void CheckOutputFolder(const std::string& option, const std::filesystem::path& folder,
                       const std::string& extension,
                       const std::vector<std::filesystem::path>& files);

}  // namespace Moravel::Play
