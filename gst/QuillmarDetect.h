// quillmardetect: a pass-through element for off-air monitoring. It hosts the reference detector
// plug-in, made as a channel makes it, and leaves every buffer as it is.
//
// Bus messages (element messages; every structure also carries "timestamp", "stream-time" and
// "running-time" of the buffer in which the result was found):
//   quillmar-detection  cid (uint64), timestamp (string, YYYYMMDDHHMMSS), time (string, ISO 8601
//                       UTC), quality (double), media-time (double, seconds into the stream as
//                       the detector counts them): one decoded second of a watermark
//   quillmar-presence   present (boolean), media-time (double): a watermark appeared or went
#pragma once

#include <gst/video/gstvideofilter.h>

G_BEGIN_DECLS

#define GST_TYPE_QUILLMAR_DETECT (gst_quillmar_detect_get_type())
G_DECLARE_FINAL_TYPE(GstQuillmarDetect, gst_quillmar_detect, GST, QUILLMAR_DETECT, GstVideoFilter)

G_END_DECLS
