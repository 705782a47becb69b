#pragma once

#include <turbojpeg.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

// Motion-JPEG pictures and clips for tests and benchmarks, the same bytes on every run.
// Failures are std::runtime_error.
namespace Moravel::Test {

// The content encodes the low 16 bits of `number`, so that pictures are told apart by eye and by
// ReadPictureNumber.
struct PictureSpec {
  int width = 64;
  int height = 48;
  int number = 0;
  int subsampling = TJSAMP_420;
  int quality = 90;
  int avi1Polarity = -1;  // 0..255: an APP0 segment "AVI1" with it follows the start of image
};

std::vector<uint8_t> MakeJpeg(const PictureSpec& spec);

// The number of a decoded picture, or of a scaled one: from its full-range luma plane.
// Pictures of at least 4x4 pixels, scaled as well.
int ReadPictureNumber(const uint8_t* luma, int stride, int width, int height);

enum class Container { Avi, Mov };
// Where interlaced clips say which of the two stored fields is the top one.
enum class FieldMark {
  Avi1,      // in each picture: polarity 1 is the top field, 2 the bottom field
  FileAtom,  // the field atom of a MOV file
  None
};

struct ClipSpec {
  std::filesystem::path file;
  Container container = Container::Avi;
  int width = 64;
  int height = 48;  // of the frame; even when interlaced
  int pictures = 10;
  int rateNumerator = 25;
  int rateDenominator = 1;
  bool interlaced = false;
  bool bottomFirst = false;  // the bottom field is stored first
  FieldMark mark = FieldMark::Avi1;
  int subsampling = TJSAMP_420;
  int quality = 90;
  bool variableRate = false;  // every third picture lasts twice as long
};

// What was muxed. The picture number of frame n is n; of its top field 2n, of its bottom field
// 2n + 1.
struct Clip {
  std::filesystem::path file;
  std::vector<std::vector<uint8_t>>
      samples;                       // the bytes; of both fields in the order they are stored
  std::vector<size_t> secondFields;  // where the second field begins; 0 in a frame
  std::vector<int64_t> times;        // begin of each sample, in periods of the rate
};

Clip MakeClip(const ClipSpec& spec);

}  // namespace Moravel::Test
