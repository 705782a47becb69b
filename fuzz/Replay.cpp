#include <algorithm>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "FuzzTarget.h"
#include "support/Files.h"

// NAME-replay [FOLDER...]: runs the target over its seeds, over damaged seeds and over the files of
// the folders. NAME-replay --write-seeds FOLDER: writes the seeds for libFuzzer to start from.
namespace Moravel::Fuzz {

namespace {

constexpr int kDamagedCopies = 40;

void Run(const Input& input) {
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

// The same damage on every run.
void RunDamaged(Input input, std::mt19937& random) {
  if (input.empty())
    return;
  const auto below = [&random](size_t end) { return random() % end; };
  for (size_t changes = 1 + below(8); changes > 0; --changes)
    input[below(std::min<size_t>(input.size(), 1 + below(input.size())))] = uint8_t(random());
  if (below(4) == 0)
    input.resize(below(input.size()));
  Run(input);
}

void WriteSeeds(const std::filesystem::path& folder) {
  std::filesystem::create_directories(folder);
  int number = 0;
  for (const Input& seed : Seeds()) {
    Test::WriteFile(folder / ("seed" + std::to_string(number++)), seed);
  }
}

void RunFolder(const std::filesystem::path& folder) {
  if (!std::filesystem::exists(folder))
    return;  // a target without regressions yet
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    std::printf("%s\n", entry.path().filename().c_str());
    Run(Test::ReadFile(entry.path()));
  }
}

}  // namespace

}  // namespace Moravel::Fuzz

int main(int argc, char** argv) {
  using namespace Moravel::Fuzz;
  if (argc == 3 && std::strcmp(argv[1], "--write-seeds") == 0) {
    WriteSeeds(argv[2]);
    return 0;
  }
  std::mt19937 random(1);
  for (const Input& seed : Seeds()) {
    Run(seed);
    for (int copy = 0; copy < kDamagedCopies; ++copy)
      RunDamaged(seed, random);
  }
  for (int i = 1; i < argc; ++i)
    RunFolder(argv[i]);
}
