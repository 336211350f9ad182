#include "gst/ElementMessage.h"

namespace Quillmar::Gst {

void ElementMessage::SetBuffer(const GstSegment* segment, GstBuffer* buffer) {
  timestamp_ = buffer != nullptr ? GST_BUFFER_PTS(buffer) : GST_CLOCK_TIME_NONE;
  const bool timed = segment != nullptr && GST_CLOCK_TIME_IS_VALID(timestamp_);
  streamTime_ = timed ? gst_segment_to_stream_time(segment, GST_FORMAT_TIME, timestamp_)
                      : GST_CLOCK_TIME_NONE;
  runningTime_ = timed ? gst_segment_to_running_time(segment, GST_FORMAT_TIME, timestamp_)
                       : GST_CLOCK_TIME_NONE;
}

void ElementMessage::Post(GstStructure* structure) const {
  gst_structure_set(structure, "timestamp", G_TYPE_UINT64, timestamp_, "stream-time",
                    G_TYPE_UINT64, streamTime_, "running-time", G_TYPE_UINT64, runningTime_,
                    nullptr);
  gst_element_post_message(element_, gst_message_new_element(GST_OBJECT(element_), structure));
}

void ElementMessage::Warn(const char* text) const {
  GST_ELEMENT_WARNING(element_, LIBRARY, FAILED, ("%s", text), (nullptr));
}

}  // namespace Quillmar::Gst
