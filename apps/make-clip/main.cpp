#include <cstdio>
#include <exception>
#include <fstream>

#include "AviFile.h"
#include "DemoPicture.h"

// make-clip FILE: ten seconds of moving shapes, each picture with its number, as motion-JPEG AVI.
int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: make-clip FILE\n", stderr);
    return 2;
  }
  try {
    constexpr int kSeconds = 10;
    Moravel::Demo::AviFile clip = {1280, 720, 25, {}};
    const int count = kSeconds * clip.picturesPerSecond;
    for (int number = 0; number < count; ++number) {
      clip.pictures.push_back(Moravel::Demo::DrawPicture(clip.width, clip.height, number, count,
                                                         clip.picturesPerSecond));
    }
    const std::string bytes = clip.Bytes();
    std::ofstream file(argv[1], std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    if (file)
      return 0;
    std::fprintf(stderr, "make-clip: %s: cannot be written\n", argv[1]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "make-clip: %s\n", error.what());
  }
  return 1;
}
