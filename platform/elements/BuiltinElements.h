#pragma once

namespace qel {

// Registers the storage source ("qel.StorageSource", "storage") and the motion-JPEG decoder
// ("qel", "video.mjpeg"). Called once by a program before it builds elements.
void RegisterBuiltinElements();

}  // namespace qel
