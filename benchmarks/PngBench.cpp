#include <benchmark/benchmark.h>
#include <png.h>
#include <turbojpeg.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

#include "sinks/PngFile.h"

// Writing one picture as a PNG file, beside libpng with the same filter and compression.
namespace {

using Bytes = std::vector<uint8_t>;

struct Picture {
  int width = 0;
  int height = 0;
  Bytes bgrx;
};
Picture picture;  // the first one of the clip

void LoadPicture(const char* file) {
  std::ifstream stream(file, std::ios::binary);
  const Bytes clip((std::istreambuf_iterator<char>(stream)), {});
  const uint8_t start[] = {0xFF, 0xD8, 0xFF};
  const auto found = std::search(clip.begin(), clip.end(), std::begin(start), std::end(start));
  const auto size = static_cast<unsigned long>(clip.end() - found);
  const tjhandle decoder = tjInitDecompress();
  int subsampling = 0, colours = 0;
  tjDecompressHeader3(decoder, &*found, size, &picture.width, &picture.height, &subsampling,
                      &colours);
  picture.bgrx.resize(size_t(picture.width) * size_t(picture.height) * 4);
  tjDecompress2(decoder, &*found, size, picture.bgrx.data(), picture.width, 0, picture.height,
                TJPF_BGRX, 0);
  tjDestroy(decoder);
}

void BM_MoravelPng(benchmark::State& state) {
  for (auto _ : state) {
    Moravel::Play::OutputFile file("/dev/null");
    Moravel::Play::WritePng(file, picture.bgrx.data(), picture.width * 4,
                            {picture.width, picture.height});
  }
}
BENCHMARK(BM_MoravelPng)->Name("png/moravel");

void BM_Libpng(benchmark::State& state) {
  constexpr int kRunLengths = 3;  // Z_RLE of zlib
  for (auto _ : state) {
    std::FILE* const file = std::fopen("/dev/null", "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file);
    png_set_IHDR(png, info, static_cast<png_uint_32>(picture.width),
                 static_cast<png_uint_32>(picture.height), 8, PNG_COLOR_TYPE_RGB,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_UP);
    png_set_compression_strategy(png, kRunLengths);
    png_write_info(png, info);
    png_set_filler(png, 0, PNG_FILLER_AFTER);
    png_set_bgr(png);
    for (int row = 0; row < picture.height; ++row)
      png_write_row(png, picture.bgrx.data() + size_t(row) * size_t(picture.width) * 4);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    std::fclose(file);
  }
}
BENCHMARK(BM_Libpng)->Name("png/libpng");

}  // namespace

// png-bench CLIP [--benchmark_...]
int main(int argc, char** argv) {
  if (argc < 2)
    return 2;
  LoadPicture(argv[1]);
  argv[1] = argv[0];
  --argc;
  ++argv;
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
