// A mapped GStreamer video frame seen as a framework frame, in place: the framework frame points
// at the buffer's own samples, so a mark written into it is written into the buffer.
//
// The watermark lives in luma. Planar formats hand over their chroma planes as they are; for
// NV12 (interleaved chroma) and GRAY8 (none) the channel sees neutral chroma that it never reads.
#pragma once

#include <gst/video/video.h>

#include "framework/Frame.h"

namespace Quillmar::Gst {

class VideoFrameView {
 public:
  // Gives an element class "sink" and "src" pad templates of what a view takes: I420, YV12,
  // NV12, Y42B, Y444 and GRAY8, at most 16384 samples a side, at a frame rate above 0.
  static void AddPadTemplates(GstElementClass* element);

  // The framework's format for `info`: layout, size and frame rate (0 for a variable rate).
  static Framework::VideoFormatInfo FormatOf(const GstVideoInfo& info);

  // Views `frame`, which must stay mapped while the view is used.
  explicit VideoFrameView(GstVideoFrame& frame);

  Framework::Frame& Get() { return frame_; }

 private:
  Framework::Frame frame_;
};

}  // namespace Quillmar::Gst
