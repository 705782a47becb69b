#include "probe/ProbedTrack.h"

#include <algorithm>
#include <stdexcept>

#include "elements/mjpeg/JpegPicture.h"
#include "elements/storage/TrackInfo.h"
#include "probe/SampleReader.h"

namespace Moravel::Play {

namespace {

SampleSizes Measure(const qel::TrackIndex& index) {
  std::vector<int64_t> sizes;
  for (int64_t number = 0; number < index.Count(); ++number) {
    if (const int64_t size = index.At(number).size)
      sizes.push_back(size);
  }
  SampleSizes measured;
  if (sizes.empty())
    return measured;
  for (const int64_t size : sizes)
    measured.total += size;
  const auto [least, most] = std::minmax_element(sizes.begin(), sizes.end());
  measured.least = *least;
  measured.most = *most;
  measured.mean = static_cast<double>(measured.total) / static_cast<double>(sizes.size());
  const auto p99 = sizes.begin() + static_cast<ptrdiff_t>((sizes.size() * 99 + 99) / 100 - 1);
  std::nth_element(sizes.begin(), p99, sizes.end());
  measured.p99 = *p99;
  return measured;
}

double SecondsOf(const qel::TrackIndex& index) {
  const qel::EditRate& rate = index.Facts().timeRate;
  return static_cast<double>(index.Start(index.Count())) * static_cast<double>(rate._denominator) /
         static_cast<double>(rate._numerator);
}

std::vector<std::string> ProblemsOf(const qel::TrackFacts& facts) {
  std::vector<std::string> problems = facts.problems;
  if (facts.missing != 0)
    problems.push_back(std::to_string(facts.missing) + " samples have no picture");
  if (facts.repeats != 0)
    problems.push_back(std::to_string(facts.repeats) + " empty chunks repeat the picture before");
  if (facts.isVariableRate)
    problems.push_back("the rate is variable: not all pictures last equally long");
  return problems;
}

// Of the first picture that is there.
void LookAtFirstPicture(TrackSource& source, ProbedTrack& probed) {
  int64_t number = 0;
  while (number < probed.index->Count() && probed.index->At(number).size == 0)
    ++number;
  if (number == probed.index->Count())
    return;
  const qel::SampleContainerConstPtr container = ReadSample(source, *probed.index, number);
  const qel::SampleList samples = container ? container->GetAllSamples() : qel::SampleList();
  if (samples.empty() || !samples.front() || !samples.front()->GetData())
    return;
  const qel::BufferConstPtr data = samples.front()->GetData();
  try {
    const std::span<const uint8_t> bytes(data->GetInnerBuffer(), data->GetDataSize());
    probed.sampling = qel::mjpeg::JpegPicture(bytes).SamplingName();
  } catch (const std::exception& error) {
    probed.problems.push_back("sample " + std::to_string(number) + ": " + error.what());
  }
}

}  // namespace

ProbedTrack ProbeTrack(TrackSource& source, const NamedTrack& named) {
  source.Select(named.id);
  const qel::InfoContainerConstPtr output = source.Media()->GetDefinedOutput("");
  ProbedTrack probed;
  probed.track = DescribeTrack(named, output);
  const auto info =
      std::dynamic_pointer_cast<const qel::TrackInfo>(output->GetVideoInfoList().front());
  if (!info)
    throw std::runtime_error("the source tells nothing about its index");
  probed.index = info->Index();
  probed.sizes = Measure(*probed.index);
  probed.seconds = SecondsOf(*probed.index);
  probed.problems = ProblemsOf(probed.Facts());
  LookAtFirstPicture(source, probed);
  return probed;
}

}  // namespace Moravel::Play
