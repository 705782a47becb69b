#pragma once

#include <cairo.h>

#include <cstdint>
#include <memory>

#include "command/Size.h"

namespace Moravel::Play {

// Throws, when it is an error, what is told of a picture of that size.
void CheckDrawing(cairo_status_t status, Size size);

// An opaque picture in memory, four bytes B, G, R and unused to a pixel. Errors of the drawing
// library are OutputError, std::bad_alloc for want of memory.
class CairoSurface {
 public:
  explicit CairoSurface(Size size);

  cairo_surface_t* Get() const { return surface_.get(); }
  Size GetSize() const {
    return {cairo_image_surface_get_width(Get()), cairo_image_surface_get_height(Get())};
  }
  int Stride() const { return cairo_image_surface_get_stride(Get()); }
  uint8_t* Data() { return cairo_image_surface_get_data(Get()); }

  // To be called before and after Data() is written to beside drawing.
  void Flush() { cairo_surface_flush(Get()); }
  void MarkDirty() { cairo_surface_mark_dirty(Get()); }

 private:
  struct Destroy {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
  };
  std::unique_ptr<cairo_surface_t, Destroy> surface_;
};

}  // namespace Moravel::Play
