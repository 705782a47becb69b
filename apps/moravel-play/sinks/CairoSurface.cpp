#include "sinks/CairoSurface.h"

#include <exception>
#include <span>

#include "sinks/OutputFile.h"

namespace Moravel::Play {

namespace {

// C code lies between the writer and its caller: exceptions wait in here meanwhile.
struct PngOutput {
  OutputFile file;
  std::exception_ptr failure;
};

cairo_status_t WritePart(void* closure, const unsigned char* data, unsigned int length) {
  auto* const output = static_cast<PngOutput*>(closure);
  try {
    output->file.Write(std::span<const uint8_t>(data, length));
    return CAIRO_STATUS_SUCCESS;
  } catch (...) {
    output->failure = std::current_exception();
    return CAIRO_STATUS_WRITE_ERROR;
  }
}

void Check(cairo_status_t status, const std::string& what) {
  if (status != CAIRO_STATUS_SUCCESS)
    throw OutputError(what + ": " + cairo_status_to_string(status));
}

}  // namespace

CairoSurface::CairoSurface(Size size)
    : surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, size.width, size.height)) {
  Check(cairo_surface_status(Get()), "a picture of " + size.ToString() + " cannot be drawn");
}

void CairoSurface::WritePng(const std::filesystem::path& path) const {
  PngOutput output = {OutputFile(path), nullptr};
  const cairo_status_t status = cairo_surface_write_to_png_stream(Get(), WritePart, &output);
  if (output.failure)
    std::rethrow_exception(output.failure);
  Check(status, path.string() + ": cannot be written");
  output.file.Close();
}

}  // namespace Moravel::Play
