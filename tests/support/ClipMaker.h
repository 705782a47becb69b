#pragma once

#include <turbojpeg.h>

#include <cstdint>
#include <filesystem>
#include <string>
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

struct ClipSpec {
  std::filesystem::path file = {};
  Container container = Container::Avi;
  int width = 64;
  int height = 48;  // of the frame; even when interlaced
  int pictures = 10;
  int rateNumerator = 25;
  int rateDenominator = 1;
  bool interlaced = false;   // marked in each picture of an AVI file, in the header of a MOV file
  bool bottomFirst = false;  // the bottom field is stored first
  int quality = 90;
  bool variableRate = false;  // every third picture lasts twice as long
  int64_t padding = 0;        // zeros behind each picture, holes of the file where there are many
  bool headerFirst = false;   // in a MOV file
  bool fieldEach = false;     // each field is a sample of its own
  std::string timecode = {};  // of the first picture, "10:00:00:00"
  std::string options = {};   // of the muxer, "name=value:name=value"
};

// What was muxed: the bytes of each sample, of both fields in the order they are stored. The
// picture number of frame n is n; of its top field 2n, of its bottom field 2n + 1.
struct Clip {
  std::filesystem::path file;
  std::vector<std::vector<uint8_t>> samples;
};

Clip MakeClip(const ClipSpec& spec);

}  // namespace Moravel::Test
