#include "DemoPicture.h"

#include <cairo.h>
#include <turbojpeg.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <numbers>
#include <stdexcept>

namespace Moravel::Demo {

namespace {

constexpr double kTurn = 2 * std::numbers::pi;

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Pen = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;
using Pattern = std::unique_ptr<cairo_pattern_t, decltype(&cairo_pattern_destroy)>;

// A colour of the wheel, `hue` in turns.
struct Colour {
  Colour(double hue, double brightness)
      : red(brightness * (0.5 + 0.5 * std::cos(kTurn * hue))),
        green(brightness * (0.5 + 0.5 * std::cos(kTurn * (hue - 1.0 / 3)))),
        blue(brightness * (0.5 + 0.5 * std::cos(kTurn * (hue - 2.0 / 3)))) {}
  double red, green, blue;
};

class Scene {
 public:
  // `phase` goes from 0 to 1 through the clip, whose end meets its beginning.
  Scene(cairo_t* pen, double width, double height, double phase)
      : pen_(pen), width_(width), height_(height), phase_(phase) {}

  void DrawSky() const {
    const Pattern sky(cairo_pattern_create_linear(0, 0, width_, height_), &cairo_pattern_destroy);
    for (const double stop : {0.0, 0.5, 1.0}) {
      const Colour colour(0.62 + 0.35 * stop + phase_, 0.55 - 0.3 * stop);
      cairo_pattern_add_color_stop_rgb(sky.get(), stop, colour.red, colour.green, colour.blue);
    }
    cairo_set_source(pen_, sky.get());
    cairo_paint(pen_);
  }

  void DrawBubbles() const {
    constexpr int kBubbles = 9;
    for (int i = 0; i < kBubbles; ++i) {
      const double own = double(i) / kBubbles;
      const double x = width_ * (0.5 + 0.46 * std::sin(kTurn * ((1 + i % 3) * phase_ + own)));
      const double y = height_ * (0.5 + 0.42 * std::cos(kTurn * ((1 + i % 2) * phase_ + 2 * own)));
      const Colour colour(own + phase_, 0.95);
      cairo_set_source_rgba(pen_, colour.red, colour.green, colour.blue, 0.6);
      cairo_arc(pen_, x, y, height_ * (0.05 + 0.08 * own), 0, kTurn);
      cairo_fill(pen_);
    }
  }

  // How far the clip has come.
  void DrawBar() const {
    cairo_set_source_rgba(pen_, 1, 1, 1, 0.85);
    cairo_rectangle(pen_, 0, height_ * 0.975, width_ * phase_, height_ * 0.025);
    cairo_fill(pen_);
  }

  // In the middle between left and right, dark behind bright.
  void DrawText(const char* text, double size, double baseline) const {
    cairo_select_font_face(pen_, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_BOLD);
    cairo_set_font_size(pen_, size * height_);
    cairo_text_extents_t extents;
    cairo_text_extents(pen_, text, &extents);
    cairo_move_to(pen_, (width_ - extents.width) / 2 - extents.x_bearing, baseline * height_);
    cairo_text_path(pen_, text);
    cairo_set_source_rgba(pen_, 0, 0, 0, 0.7);
    cairo_set_line_width(pen_, 0.03 * height_);
    cairo_set_line_join(pen_, CAIRO_LINE_JOIN_ROUND);
    cairo_stroke_preserve(pen_);
    cairo_set_source_rgb(pen_, 1, 1, 1);
    cairo_fill(pen_);
  }

 private:
  cairo_t* const pen_;
  const double width_, height_, phase_;
};

std::string Compress(cairo_surface_t* picture) {
  constexpr int kQuality = 88;
  const std::unique_ptr<void, decltype(&tjDestroy)> compressor(tjInitCompress(), &tjDestroy);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  cairo_surface_flush(picture);
  const int result = tjCompress2(
      compressor.get(), cairo_image_surface_get_data(picture),
      cairo_image_surface_get_width(picture), cairo_image_surface_get_stride(picture),
      cairo_image_surface_get_height(picture), TJPF_BGRX, &bytes, &size, TJSAMP_420, kQuality, 0);
  const std::unique_ptr<unsigned char, decltype(&tjFree)> owner(bytes, &tjFree);
  if (result != 0)
    throw std::runtime_error(tjGetErrorStr2(compressor.get()));
  return {bytes, bytes + size};
}

}  // namespace

std::string DrawPicture(int width, int height, int number, int count, int picturesPerSecond) {
  const Surface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height),
                        &cairo_surface_destroy);
  const Pen pen(cairo_create(surface.get()), &cairo_destroy);
  const Scene scene(pen.get(), width, height, double(number) / count);
  scene.DrawSky();
  scene.DrawBubbles();
  scene.DrawBar();
  scene.DrawText(std::to_string(number).c_str(), 0.45, 0.62);
  char time[32];
  std::snprintf(time, sizeof time, "00:00:%02d:%02d", number / picturesPerSecond,
                number % picturesPerSecond);
  scene.DrawText(time, 0.1, 0.82);
  if (cairo_status(pen.get()) != CAIRO_STATUS_SUCCESS)
    throw std::runtime_error(cairo_status_to_string(cairo_status(pen.get())));
  return Compress(surface.get());
}

}  // namespace Moravel::Demo
