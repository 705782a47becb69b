#include "support/ClipMaker.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

extern "C" {
#include <libavformat/avformat.h>
}

namespace Moravel::Test {

namespace {

// A picture is a grid of bright and dark cells, one for each bit of its number; the lowest bit is
// at the top left.
constexpr int kCells = 4;
constexpr int kBright = 180;
constexpr int kDark = 60;

int CellOf(int position, int extent) {
  return position * kCells / extent;
}

std::vector<uint8_t> MakePixels(const PictureSpec& spec) {
  std::vector<uint8_t> rgb;
  rgb.reserve(size_t(spec.width) * size_t(spec.height) * 3);
  for (int y = 0; y < spec.height; ++y) {
    for (int x = 0; x < spec.width; ++x) {
      const int cell = CellOf(y, spec.height) * kCells + CellOf(x, spec.width);
      const bool bit = (spec.number >> cell) & 1;
      const int gradient = 30 * x / spec.width - 20 * y / spec.height;
      const int luma = (bit ? kBright : kDark) + gradient;
      const int tint = (spec.number * 5 + cell * 7) % 31 * 2 - 30;  // hardly changes the luma
      rgb.push_back(static_cast<uint8_t>(luma + tint));
      rgb.push_back(static_cast<uint8_t>(luma));
      rgb.push_back(static_cast<uint8_t>(luma - tint));
    }
  }
  return rgb;
}

// Puts the segment behind the start of image. Both sizes are those of the whole picture: there is
// no padding.
void InsertAvi1(std::vector<uint8_t>& jpeg, int polarity) {
  std::vector<uint8_t> segment = {
      0xFF, 0xE0, 0x00, 0x10, 'A', 'V', 'I', '1', static_cast<uint8_t>(polarity), 0};
  const size_t pictureSize = jpeg.size() + segment.size() + 8;
  for (int field = 0; field < 2; ++field) {
    for (int shift = 24; shift >= 0; shift -= 8) {
      segment.push_back(static_cast<uint8_t>(pictureSize >> shift));
    }
  }
  jpeg.insert(jpeg.begin() + 2, segment.begin(), segment.end());
}

void Check(int error, std::string_view what) {
  if (error < 0) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    throw std::runtime_error("clip: " + std::string(what) + ": " + text);
  }
}

// Writes one video track of ready-made pictures.
class Muxer {
 public:
  explicit Muxer(const ClipSpec& spec) {
    AVFormatContext* context = nullptr;
    Check(
        avformat_alloc_output_context2(
            &context, nullptr, spec.container == Container::Avi ? "avi" : "mov", spec.file.c_str()),
        "muxer");
    context_.reset(context);
    context_->flags |= AVFMT_FLAG_BITEXACT;
    DescribeStream(spec);
    Check(avio_open(&context_->pb, spec.file.c_str(), AVIO_FLAG_WRITE), spec.file.string());
    Check(avformat_write_header(context_.get(), nullptr), "header");
  }

  void Write(const std::vector<uint8_t>& sample, int64_t time, int64_t duration) {
    const AVStream& stream = *context_->streams[0];
    Check(av_new_packet(packet_.get(), static_cast<int>(sample.size())), "packet");
    std::copy(sample.begin(), sample.end(), packet_->data);
    packet_->pts = packet_->dts = time;
    packet_->duration = duration;
    packet_->flags = AV_PKT_FLAG_KEY;
    av_packet_rescale_ts(packet_.get(), period_, stream.time_base);
    Check(av_interleaved_write_frame(context_.get(), packet_.get()), "sample");
  }

  void Finish() { Check(av_write_trailer(context_.get()), "trailer"); }

 private:
  void DescribeStream(const ClipSpec& spec) {
    AVStream* stream = avformat_new_stream(context_.get(), nullptr);
    if (stream == nullptr) {
      throw std::bad_alloc();
    }
    stream->time_base = period_ = {spec.rateDenominator, spec.rateNumerator};
    stream->avg_frame_rate = stream->r_frame_rate = {spec.rateNumerator, spec.rateDenominator};
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_VIDEO;
    parameters.codec_id = AV_CODEC_ID_MJPEG;
    parameters.width = spec.width;
    parameters.height = spec.height;
    if (spec.interlaced && spec.mark == FieldMark::FileAtom) {
      parameters.field_order = spec.bottomFirst ? AV_FIELD_BB : AV_FIELD_TT;
    }
  }

  struct ContextFreer {
    void operator()(AVFormatContext* context) const {
      avio_closep(&context->pb);
      avformat_free_context(context);
    }
  };
  struct PacketFreer {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  };
  std::unique_ptr<AVFormatContext, ContextFreer> context_;
  std::unique_ptr<AVPacket, PacketFreer> packet_{av_packet_alloc()};
  AVRational period_{};
};

std::vector<uint8_t> MakeField(const ClipSpec& spec, int frame, bool bottom) {
  const int polarity = spec.mark == FieldMark::Avi1 ? (bottom ? 2 : 1) : -1;
  return MakeJpeg({.width = spec.width,
                   .height = spec.height / 2,
                   .number = 2 * frame + bottom,
                   .subsampling = spec.subsampling,
                   .quality = spec.quality,
                   .avi1Polarity = polarity});
}

void AddSample(const ClipSpec& spec, int frame, Clip& clip) {
  size_t secondField = 0;
  std::vector<uint8_t> sample;
  if (spec.interlaced) {
    sample = MakeField(spec, frame, spec.bottomFirst);
    secondField = sample.size();
    const std::vector<uint8_t> second = MakeField(spec, frame, !spec.bottomFirst);
    sample.insert(sample.end(), second.begin(), second.end());
  } else {
    sample = MakeJpeg({.width = spec.width,
                       .height = spec.height,
                       .number = frame,
                       .subsampling = spec.subsampling,
                       .quality = spec.quality});
  }
  clip.samples.push_back(std::move(sample));
  clip.secondFields.push_back(secondField);
  clip.times.push_back(spec.variableRate ? frame + frame / 3 : frame);
}

}  // namespace

std::vector<uint8_t> MakeJpeg(const PictureSpec& spec) {
  const std::unique_ptr<void, decltype(&tjDestroy)> compressor(tjInitCompress(), &tjDestroy);
  const std::vector<uint8_t> pixels = MakePixels(spec);
  unsigned char* data = nullptr;
  unsigned long size = 0;
  const int result =
      tjCompress2(compressor.get(), pixels.data(), spec.width, 0, spec.height, TJPF_RGB, &data,
                  &size, spec.subsampling, spec.quality, TJFLAG_ACCURATEDCT);
  const std::unique_ptr<unsigned char, decltype(&tjFree)> holder(data, &tjFree);
  if (result != 0) {
    throw std::runtime_error(std::string("picture: ") + tjGetErrorStr2(compressor.get()));
  }
  std::vector<uint8_t> jpeg(data, data + size);
  if (spec.avi1Polarity >= 0) {
    InsertAvi1(jpeg, spec.avi1Polarity);
  }
  return jpeg;
}

int ReadPictureNumber(const uint8_t* luma, int stride, int width, int height) {
  int number = 0;
  for (int cell = 0; cell < kCells * kCells; ++cell) {
    const int x = (2 * (cell % kCells) + 1) * width / (2 * kCells);
    const int y = (2 * (cell / kCells) + 1) * height / (2 * kCells);
    number |= (luma[y * stride + x] > (kBright + kDark) / 2) << cell;
  }
  return number;
}

Clip MakeClip(const ClipSpec& spec) {
  if (spec.interlaced && spec.mark == FieldMark::FileAtom && spec.container != Container::Mov) {
    throw std::runtime_error("clip: only a MOV file has a field atom");
  }
  Clip clip{.file = spec.file, .samples = {}, .secondFields = {}, .times = {}};
  Muxer muxer(spec);
  for (int frame = 0; frame < spec.pictures; ++frame) {
    AddSample(spec, frame, clip);
    const int64_t duration = spec.variableRate && frame % 3 == 2 ? 2 : 1;
    muxer.Write(clip.samples.back(), clip.times.back(), duration);
  }
  muxer.Finish();
  return clip;
}

}  // namespace Moravel::Test
