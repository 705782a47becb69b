#include "sinks/CairoSurface.h"

#include "sinks/OutputFile.h"

namespace Moravel::Play {

namespace {

void Check(cairo_status_t status, const std::string& what) {
  if (status != CAIRO_STATUS_SUCCESS)
    throw OutputError(what + ": " + cairo_status_to_string(status));
}

}  // namespace

CairoSurface::CairoSurface(Size size)
    : surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, size.width, size.height)) {
  Check(cairo_surface_status(Get()), "a picture of " + size.ToString() + " cannot be drawn");
}

}  // namespace Moravel::Play
