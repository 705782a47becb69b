#pragma once

namespace qel {

// Registers the motion-JPEG decoder as the video decoder ("qel", "video.mjpeg").
//
// One push of one encoded picture gives one uncompressed picture. Pictures come out in the format
// of the init configuration "OutputFourCC" (default I420; Y800, YUYV, YVYU, UYVY, YV12, YV16, I422,
// BGR3, BGRA, RGB3, RGBA), and in the size of the update configuration "output_width" and
// "output_height" (default, and with 0: the size of each picture).
//
// A damaged picture that can still be shown is delivered with one warning line. One that can not be
// decoded, or is beyond the limits of elements/mjpeg/JpegPicture.h, is a QELRuntimeError; nothing
// of it or of an earlier picture reaches a later one.
//
// An element may be given a new size while another thread decodes with it; the size counts from
// the next push.
void RegisterMotionJpegDecoder();

}  // namespace qel
