#include "support/ClipMaker.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "storage-server/Descriptor.h"

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

std::vector<uint8_t> MakePixels(const PictureSpec& spec) {
  std::vector<uint8_t> rgb;
  for (int y = 0; y < spec.height; ++y) {
    for (int x = 0; x < spec.width; ++x) {
      const int cell = y * kCells / spec.height * kCells + x * kCells / spec.width;
      const int gradient = 30 * x / spec.width - 20 * y / spec.height;
      const int luma = ((spec.number >> cell) & 1 ? kBright : kDark) + gradient;
      const int tint = (spec.number * 5 + cell * 7) % 31 * 2 - 30;  // hardly changes the luma
      for (const int sample : {luma + tint, luma, luma - tint})
        rgb.push_back(static_cast<uint8_t>(sample));
    }
  }
  return rgb;
}

// Puts the segment behind the start of image. Both sizes are those of the whole picture: there is
// no padding.
void InsertAvi1(std::vector<uint8_t>& jpeg, int polarity) {
  std::vector<uint8_t> segment = {
      0xFF, 0xE0, 0, 16, 'A', 'V', 'I', '1', static_cast<uint8_t>(polarity), 0};
  for (int i = 0; i < 8; ++i)
    segment.push_back(static_cast<uint8_t>((jpeg.size() + 18) >> (24 - i % 4 * 8)));
  jpeg.insert(jpeg.begin() + 2, segment.begin(), segment.end());
}

template <typename Result>
Result Checked(Result result, const char* what) {
  if (result < 0)
    throw std::runtime_error(std::string("clip: ") + what);
  return result;
}

// Long zeros become holes.
int WriteFile(void* file, uint8_t* bytes, int size) {
  const int descriptor = static_cast<const Player::Descriptor*>(file)->Get();
  const bool isHole = size > 4096 && bytes[0] == 0 &&
                      std::memcmp(bytes, bytes + 1, static_cast<size_t>(size) - 1) == 0;
  Checked(isHole ? ::lseek(descriptor, size, SEEK_CUR)
                 : ::write(descriptor, bytes, static_cast<size_t>(size)),
          "file");
  return size;
}

int64_t SeekFile(void* file, int64_t offset, int whence) {
  return whence == AVSEEK_SIZE
             ? -1
             : ::lseek(static_cast<const Player::Descriptor*>(file)->Get(), offset, whence);
}

// Writes one video track of ready-made pictures.
class Muxer {
 public:
  explicit Muxer(const ClipSpec& spec)
      : file_(::open(spec.file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)),
        period_{spec.rateDenominator, spec.rateNumerator} {
    Checked(file_.Get(), spec.file.c_str());
    const bool isAvi = spec.container == Container::Avi;
    avformat_alloc_output_context2(&context_, nullptr, isAvi ? "avi" : "mov", spec.file.c_str());
    context_->flags |= AVFMT_FLAG_BITEXACT;
    constexpr int kBuffer = 1 << 16;
    context_->pb = avio_alloc_context(static_cast<unsigned char*>(av_malloc(kBuffer)), kBuffer, 1,
                                      &file_, nullptr, &WriteFile, &SeekFile);
    AVStream* const stream = avformat_new_stream(context_, nullptr);
    stream->time_base = period_;
    stream->avg_frame_rate = stream->r_frame_rate = av_inv_q(period_);
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_VIDEO;
    parameters.codec_id = AV_CODEC_ID_MJPEG;
    parameters.width = spec.width;
    parameters.height = spec.height;
    if (spec.interlaced && !isAvi)
      parameters.field_order = spec.bottomFirst ? AV_FIELD_BB : AV_FIELD_TT;
    AVDictionary* options = nullptr;
    if (spec.headerFirst)
      av_dict_set(&options, "movflags", "faststart", 0);
    av_dict_parse_string(&options, spec.options.c_str(), "=", ":", 0);
    if (!spec.timecode.empty())
      av_dict_set(&context_->metadata, "timecode", spec.timecode.c_str(), 0);
    const int result = avformat_write_header(context_, &options);
    av_dict_free(&options);
    Checked(result, "header");
  }
  ~Muxer() {
    av_freep(&context_->pb->buffer);
    avio_context_free(&context_->pb);
    avformat_free_context(context_);
    av_packet_free(&packet_);
  }

  void Write(const std::vector<uint8_t>& sample, int64_t padding, int64_t time, int64_t duration) {
    Checked(av_new_packet(packet_, static_cast<int>(sample.size()) + static_cast<int>(padding)),
            "packet");
    std::fill(std::copy(sample.begin(), sample.end(), packet_->data), packet_->data + packet_->size,
              uint8_t{0});
    packet_->pts = packet_->dts = time;
    packet_->duration = duration;
    packet_->flags = AV_PKT_FLAG_KEY;
    av_packet_rescale_ts(packet_, period_, context_->streams[0]->time_base);
    Checked(av_write_frame(context_, packet_), "sample");
    av_packet_unref(packet_);
  }
  void Finish() {
    Checked(av_write_trailer(context_), "trailer");
    avio_flush(context_->pb);
  }

 private:
  Player::Descriptor file_;
  const AVRational period_;
  AVFormatContext* context_ = nullptr;
  AVPacket* packet_ = av_packet_alloc();
};

// One picture, or two fields.
std::vector<std::vector<uint8_t>> MakePictures(const ClipSpec& spec, int frame) {
  PictureSpec picture = {
      .width = spec.width, .height = spec.height, .number = frame, .quality = spec.quality};
  if (!spec.interlaced)
    return {MakeJpeg(picture)};
  std::vector<std::vector<uint8_t>> fields;
  picture.height /= 2;
  for (const int bottom : {spec.bottomFirst ? 1 : 0, spec.bottomFirst ? 0 : 1}) {
    picture.number = 2 * frame + bottom;
    picture.avi1Polarity = spec.container == Container::Avi ? 1 + bottom : -1;
    fields.push_back(MakeJpeg(picture));
  }
  return fields;
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
  std::vector<uint8_t> jpeg(data, data + size);
  tjFree(data);
  Checked(result, "picture");
  if (spec.avi1Polarity >= 0)
    InsertAvi1(jpeg, spec.avi1Polarity);
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
  Clip clip{spec.file, {}};
  ClipSpec stored = spec;
  stored.rateNumerator *= spec.fieldEach ? 2 : 1;
  Muxer muxer(stored);
  for (int frame = 0; frame < spec.pictures; ++frame) {
    std::vector<uint8_t>& sample = clip.samples.emplace_back();
    const int64_t time = spec.variableRate ? frame + frame / 3 : frame;
    const int64_t duration = spec.variableRate && frame % 3 == 2 ? 2 : 1;
    int64_t field = 0;
    for (const auto& picture : MakePictures(spec, frame)) {
      sample.insert(sample.end(), picture.begin(), picture.end());
      if (spec.fieldEach)
        muxer.Write(picture, 0, 2 * time + field++, 1);
    }
    if (!spec.fieldEach)
      muxer.Write(sample, spec.padding, time, duration);
  }
  muxer.Finish();
  return clip;
}

}  // namespace Moravel::Test
