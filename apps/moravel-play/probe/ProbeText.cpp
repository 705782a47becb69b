#include <algorithm>
#include <cstdio>

#include "probe/ProbeReport.h"
#include "qelCore/Printable.h"
#include "tracks/TrackTimes.h"

namespace Moravel::Play {

namespace {

constexpr size_t kMaxLossLines = 50;
constexpr double kKilo = 1e3, kMega = 1e6, kBitsOfByte = 8;

template <typename... Values>
std::string Format(const char* format, Values... values) {
  char text[160];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

std::string Row(const char* name, const std::string& value) {
  return Format("  %-13s ", name) + qel::Printable(value) + '\n';
}

std::string Counted(int64_t count, const char* one, const char* many) {
  return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

std::string BytesText(double bytes) {
  return bytes < kKilo   ? Format("%.0f B", bytes)
         : bytes < kMega ? Format("%.1f kB", bytes / kKilo)
                         : Format("%.1f MB", bytes / kMega);
}

// "0:01:02.500"
std::string DurationText(double seconds) {
  const auto whole = static_cast<int64_t>(seconds);
  return Format("%lld:%02lld:%06.3f", static_cast<long long>(whole / 3600),
                static_cast<long long>(whole / 60 % 60),
                seconds - static_cast<double>(whole - whole % 60));
}

std::string PicturesText(const ProbedTrack& probed) {
  const qel::TrackFacts& facts = probed.Facts();
  std::string text = probed.track.FrameSize().ToString();
  if (facts.pixelAspectWidth != facts.pixelAspectHeight)
    text += Format(", pixels %u:%u", facts.pixelAspectWidth, facts.pixelAspectHeight);
  if (!probed.sampling.empty())
    text += ", " + probed.sampling;
  return text + (probed.track.interlaced ? ", interlaced" : ", progressive");
}

std::string FieldsText(const qel::TrackFacts& facts) {
  const std::string order =
      facts.fieldOrder == qel::FieldOrder::BottomFirst ? "bottom first" : "top first";
  return order + (facts.isBottomStoredFirst ? ", bottom stored first" : "") +
         (facts.fieldOrderFrom.empty() ? "" : " (" + facts.fieldOrderFrom + ')');
}

std::string RateText(const ProbedTrack& probed) {
  const Track& track = probed.track;
  const std::string ratio = std::to_string(track.sampleRate.Numerator()) + '/' +
                            std::to_string(track.sampleRate.Denominator());
  return ToRateText(track) +
         (track.IsVariableRate() ? " (nominal " + ratio + ')' : " (" + ratio + "), constant");
}

std::string DataText(const ProbedTrack& probed) {
  const double rate = static_cast<double>(probed.sizes.total) / std::max(probed.seconds, 1e-9);
  return Format("%.2f MB/s (%.1f Mbit/s), ", rate / kMega, rate * kBitsOfByte / kMega) +
         BytesText(static_cast<double>(probed.sizes.total)) + " in all";
}

std::string SizesText(const SampleSizes& sizes) {
  return BytesText(static_cast<double>(sizes.least)) + " least, " + BytesText(sizes.mean) +
         " mean, " + BytesText(static_cast<double>(sizes.p99)) + " p99, " +
         BytesText(static_cast<double>(sizes.most)) + " most";
}

// "    #10-#12       00:00:00:10  damaged: Premature end of JPEG file"
std::string LossLine(const Track& track, const ScanLoss& loss) {
  std::string samples = '#' + std::to_string(loss.first);
  if (loss.last != loss.first)
    samples += "-#" + std::to_string(loss.last);
  return Format("    %-16s %s  %s", samples.c_str(), ToTimeCode(track, loss.first).c_str(),
                NameOf(loss.state)) +
         qel::Printable((loss.reason.empty() ? "" : ": ") + loss.reason) + '\n';
}

// "100 samples"; of a scan that was interrupted "40 of 100 samples".
std::string ReadText(const ProbedTrack& probed) {
  const ScanResult& scan = *probed.scan;
  int64_t seen = scan.samplesRead + scan.unlisted;
  for (const ScanLoss& loss : scan.losses) {
    if (loss.state == PictureState::Missing || loss.state == PictureState::Unreadable)
      seen += loss.last - loss.first + 1;
  }
  const std::string all = Counted(probed.track.sampleCount, "sample", "samples");
  return seen < probed.track.sampleCount ? std::to_string(scan.samplesRead) + " of " + all
                                         : Counted(scan.samplesRead, "sample", "samples");
}

std::string ScanText(const ProbedTrack& probed) {
  const ScanResult& scan = *probed.scan;
  std::string text = Row(
      "scan", ReadText(probed) + " read, " +
                  (scan.samplesLost == 0 ? "all good"
                                         : Counted(scan.samplesLost, "is", "are") + " not good:"));
  const size_t shown = std::min(scan.losses.size(), kMaxLossLines);
  for (size_t i = 0; i < shown; ++i)
    text += LossLine(probed.track, scan.losses[i]);
  if (shown < scan.losses.size())
    text += "    and " + std::to_string(scan.losses.size() - shown) +
            " more ranges of samples (--json lists them)\n";
  return text;
}

}  // namespace

std::string ToText(const ProbedTrack& probed) {
  const Track& track = probed.track;
  const qel::TrackFacts& facts = probed.Facts();
  std::string text = qel::Printable(track.name) + '\n';
  text += Row("container", facts.container);
  text += Row("pictures", PicturesText(probed));
  if (track.interlaced)
    text += Row("fields", FieldsText(facts));
  text += Row("rate", RateText(probed));
  text += Row("samples", std::to_string(track.sampleCount));
  text += Row("duration", DurationText(probed.seconds));
  if (facts.timecode)
    text += Row("time code",
                facts.timecode->Text() + " to " + facts.timecode->Text(track.sampleCount - 1));
  text += Row("sample bytes", SizesText(probed.sizes));
  text += Row("data rate", DataText(probed));
  text += Row("index", Counted(facts.indexRequests, "request", "requests") + ", " +
                           BytesText(static_cast<double>(facts.indexBytes)));
  for (size_t i = 0; i < probed.problems.size(); ++i)
    text += Row(i == 0 ? "problems" : "", probed.problems[i]);
  return probed.scan ? text + ScanText(probed) : text;
}

}  // namespace Moravel::Play
