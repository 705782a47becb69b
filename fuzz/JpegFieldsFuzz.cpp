#include "FuzzTarget.h"
#include "elements/storage/JpegFields.h"
#include "support/ClipMaker.h"

// The splitter of field pictures and the reader of a picture's head: any bytes.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using Moravel::Fuzz::Require;
  if (const auto facts = qel::ReadJpegFacts({data, size}))
    Require(facts->width >= 0 && facts->height >= 0, "sizes are not negative");
  if (const auto second = qel::FindSecondPicture({data, size})) {
    Require(*second > 0 && *second < size, "the second picture lies inside the sample");
    Require(data[*second] == 0xFF && data[*second + 1] == 0xD8, "it begins as a picture does");
  }
  return 0;
}

std::vector<Moravel::Fuzz::Input> Moravel::Fuzz::Seeds() {
  using Moravel::Test::MakeJpeg;
  std::vector<Input> seeds;
  for (const int polarity : {-1, 0, 1, 2}) {
    Input sample = MakeJpeg({.number = 1, .avi1Polarity = polarity});
    seeds.push_back(sample);
    const Input second = MakeJpeg({.number = 2, .avi1Polarity = polarity});
    sample.insert(sample.end(), second.begin(), second.end());
    seeds.push_back(std::move(sample));
  }
  return seeds;
}
