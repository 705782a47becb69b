#include "probe/ProbedTrack.h"

#include <map>
#include <stdexcept>

#include "elements/mjpeg/JpegPicture.h"
#include "elements/storage/TrackInfo.h"
#include "probe/SampleReader.h"

namespace Moravel::Play {

namespace {

// Takes memory for each size that there is, not for each sample: a small file may announce
// millions.
SampleSizes Measure(const qel::TrackIndex& index) {
  std::map<int64_t, int64_t> counts;  // by the size
  SampleSizes measured;
  int64_t samples = 0;
  for (int64_t number = 0; number < index.Count(); ++number) {
    const int64_t size = index.At(number).size;
    if (size == 0)
      continue;
    ++counts[size];
    ++samples;
    measured.total += size;
  }
  if (samples == 0)
    return measured;
  measured.least = counts.begin()->first;
  measured.most = counts.rbegin()->first;
  measured.mean = static_cast<double>(measured.total) / static_cast<double>(samples);
  int64_t above = samples / 100;  // as many samples may be larger
  auto p99 = counts.rbegin();
  for (; above >= p99->second; ++p99)
    above -= p99->second;
  measured.p99 = p99->first;
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
