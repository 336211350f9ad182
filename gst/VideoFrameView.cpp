#include "gst/VideoFrameView.h"

#include <vector>

namespace Quillmar::Gst {
namespace {

// A row of neutral chroma, wide enough for any picture the caps allow; shown with pitch 0 it is
// a whole neutral plane.
std::uint8_t* NeutralChromaRow() {
  static std::vector<std::uint8_t> row(8192 + 1, 128);
  return row.data();
}

Framework::PixelLayout LayoutOf(GstVideoFormat format) {
  switch (format) {
    case GST_VIDEO_FORMAT_Y42B: return Framework::PixelLayout::Yuv422P8;
    case GST_VIDEO_FORMAT_Y444: return Framework::PixelLayout::Yuv444P8;
    default: return Framework::PixelLayout::Yuv420P8;
  }
}

bool HandsOverChroma(GstVideoFormat format) {
  return format != GST_VIDEO_FORMAT_NV12 && format != GST_VIDEO_FORMAT_GRAY8;
}

Framework::Frame ViewOf(GstVideoFrame& frame) {
  const GstVideoFormat format = GST_VIDEO_FRAME_FORMAT(&frame);
  std::uint8_t* planes[Framework::VideoFormatInfo::kPlaneCount];
  int pitches[Framework::VideoFormatInfo::kPlaneCount];
  for (int plane = 0; plane < Framework::VideoFormatInfo::kPlaneCount; ++plane) {
    const bool own = plane == 0 || HandsOverChroma(format);
    planes[plane] = own ? static_cast<std::uint8_t*>(GST_VIDEO_FRAME_COMP_DATA(&frame, plane))
                        : NeutralChromaRow();
    pitches[plane] = own ? GST_VIDEO_FRAME_COMP_STRIDE(&frame, plane) : 0;
  }
  return Framework::Frame(VideoFrameView::FormatOf(frame.info), planes, pitches);
}

constexpr char kCaps[] =
    "video/x-raw, format=(string){ I420, YV12, NV12, Y42B, Y444, GRAY8 }, "
    "width=(int)[1,16384], height=(int)[1,16384], framerate=(fraction)[1/2147483647,MAX]";

}  // namespace

void VideoFrameView::AddPadTemplates(GstElementClass* element) {
  GstCaps* caps = gst_caps_from_string(kCaps);
  gst_element_class_add_pad_template(element,
                                     gst_pad_template_new("sink", GST_PAD_SINK, GST_PAD_ALWAYS, caps));
  gst_element_class_add_pad_template(element,
                                     gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, caps));
  gst_caps_unref(caps);
}

Framework::VideoFormatInfo VideoFrameView::FormatOf(const GstVideoInfo& info) {
  const double rate = GST_VIDEO_INFO_FPS_D(&info) > 0
                          ? static_cast<double>(GST_VIDEO_INFO_FPS_N(&info)) / GST_VIDEO_INFO_FPS_D(&info)
                          : 0.0;
  return Framework::VideoFormatInfo(LayoutOf(GST_VIDEO_INFO_FORMAT(&info)),
                                    GST_VIDEO_INFO_WIDTH(&info), GST_VIDEO_INFO_HEIGHT(&info), rate);
}

VideoFrameView::VideoFrameView(GstVideoFrame& frame) : frame_(ViewOf(frame)) {}

}  // namespace Quillmar::Gst
