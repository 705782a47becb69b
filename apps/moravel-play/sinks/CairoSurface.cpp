#include "sinks/CairoSurface.h"

#include "qelCore/OutOfMemory.h"
#include "sinks/OutputFile.h"

namespace Moravel::Play {

void CheckDrawing(cairo_status_t status, Size size) {
  if (status == CAIRO_STATUS_NO_MEMORY)
    qel::FailOutOfMemory();
  if (status != CAIRO_STATUS_SUCCESS) {
    throw OutputError("a picture of " + size.ToString() +
                      " cannot be drawn: " + cairo_status_to_string(status));
  }
}

CairoSurface::CairoSurface(Size size)
    : surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, size.width, size.height)) {
  CheckDrawing(cairo_surface_status(Get()), size);
}

}  // namespace Moravel::Play
