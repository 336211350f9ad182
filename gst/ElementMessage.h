// The bus messages of an element: element messages whose structures carry, besides their own
// fields, "timestamp", "stream-time" and "running-time" of the buffer being processed
// (GST_CLOCK_TIME_NONE outside streaming), and warnings. Posted with no lock held, so that a
// synchronous bus handler may call back into the element.
//
// The timing is set and read on the streaming thread; posting is thread-safe.
#pragma once

#include <gst/gst.h>

namespace Quillmar::Gst {

class ElementMessage {
 public:
  explicit ElementMessage(GstElement* element) : element_(element) {}

  // The buffer whose results follow: its times in `segment`. Null: none.
  void SetBuffer(const GstSegment* segment, GstBuffer* buffer);

  // Adds the timing fields to `structure` (owned from here) and posts it.
  void Post(GstStructure* structure) const;

  // Posts a warning with `text` for the user.
  void Warn(const char* text) const;

 private:
  GstElement* element_;
  GstClockTime timestamp_ = GST_CLOCK_TIME_NONE;
  GstClockTime streamTime_ = GST_CLOCK_TIME_NONE;
  GstClockTime runningTime_ = GST_CLOCK_TIME_NONE;
};

}  // namespace Quillmar::Gst
