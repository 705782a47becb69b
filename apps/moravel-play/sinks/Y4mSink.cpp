#include "sinks/Y4mSink.h"

#include <numeric>
#include <string_view>
#include <vector>

#include "command/Problem.h"

namespace Moravel::Play {

namespace {

constexpr int64_t kMaxEarlyPictures = 4;

std::span<const uint8_t> Bytes(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

std::string ReducedRatio(int64_t a, int64_t b) {
  const int64_t divisor = std::gcd(a, b);
  return std::to_string(a / divisor) + ":" + std::to_string(b / divisor);
}

// Each field is a picture of its own here: the stream itself is progressive ("Ip").
std::string Header(const Track& track) {
  const Size size = track.sizes.front();
  const auto [shapeWidth, shapeHeight] = track.DisplayShape();
  const Player::SampleRate rate = track.PictureRate();
  return "YUV4MPEG2 W" + std::to_string(size.width) + " H" + std::to_string(size.height) + " F" +
         ReducedRatio(rate.Numerator(), rate.Denominator()) + " Ip A" +
         ReducedRatio(shapeWidth * size.height, shapeHeight * size.width) +
         " C420jpeg XCOLORRANGE=FULL\n";
}

std::vector<uint8_t> GreyPicture(Size size) {
  const size_t chroma = size_t((size.width + 1) / 2) * size_t((size.height + 1) / 2);
  constexpr uint8_t kGrey = 128;
  return std::vector<uint8_t>(size_t(size.width) * size_t(size.height) + 2 * chroma, kGrey);
}

}  // namespace

void Y4mSink::Begin(const Track& track) {
  file_.emplace(path_);
  size_ = track.sizes.front();
  if (track.IsVariableRate()) {
    PrintProblem(track.name + ": the pictures last unequally long; --y4m shows all at " +
                 ToRateText(track.PictureRate()));
  }
  file_->Write(Bytes(Header(track)));
}

void Y4mSink::Finish() {
  if (!file_)
    return;
  file_->Close();
  if (repeated_ != 0) {
    PrintProblem("--y4m: " + std::to_string(repeated_) +
                 " pictures without a picture of their own show the one before, or grey");
  }
}

void Y4mSink::Write(const Picture& picture) {
  const int64_t index = picture.PlayIndex();
  std::unique_lock<std::mutex> lock(picturesAccess_);
  advanced_.wait(lock, [&] { return broken_ || index < next_ + kMaxEarlyPictures; });
  if (broken_)
    return;
  early_.emplace(index, picture.image);
  if (!writing_)
    WriteWhatIsNext(lock);
}

void Y4mSink::WriteWhatIsNext(std::unique_lock<std::mutex>& lock) {
  writing_ = true;
  while (!early_.empty() && early_.begin()->first == next_) {
    const qel::VideoSampleConstPtr image = early_.extract(early_.begin()).mapped();
    lock.unlock();
    try {
      WriteFrame(image);
    } catch (...) {
      lock.lock();
      broken_ = true;
      advanced_.notify_all();
      throw;
    }
    lock.lock();
    ++next_;
    advanced_.notify_all();
  }
  writing_ = false;
}

// A stream has one picture for each time: where there is none, the one before stands still.
void Y4mSink::WriteFrame(const qel::VideoSampleConstPtr& image) {
  file_->Write(Bytes("FRAME\n"));
  if (image)
    last_ = image;
  else
    ++repeated_;
  if (!last_) {
    file_->Write(GreyPicture(size_));
    return;
  }
  const qel::BufferConstPtr data = last_->GetData();
  file_->Write({data->GetInnerBuffer(), data->GetDataSize()});
}

}  // namespace Moravel::Play
