#pragma once

#include <cstdint>

namespace qel {

// Registers the storage source ("qel.StorageSource", "storage") and the motion-JPEG decoder
// ("qel", "video.mjpeg"). Called once by a program before it builds elements.
//
// `beginningBytes`: for a program that plays tracks from their beginning, and wants to see the
// first picture sooner. Opening a track then asks for so many of its file's first bytes at once,
// and the first samples are taken out of them instead of being asked for when the index is known:
// one round trip less where the first picture is among them. What is not read is given up with the
// first sample from elsewhere. At most 4 MiB; 0 asks for what the index needs.
void RegisterBuiltinElements(int64_t beginningBytes = 0);

}  // namespace qel
