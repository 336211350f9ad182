#include "gst/QuillmarDetect.h"

#include <gst/video/video.h>

#include <memory>
#include <string>

#include "detector-api/CBasebandWMDetection.h"
#include "detector-api/LSNDetection.h"
#include "events/VWMDetectionEvent.h"
#include "events/WatermarkTime.h"
#include "framework/AlgorithmBase.h"
#include "gst/ElementMessage.h"
#include "gst/VideoFrameView.h"
#include "tools/Detector.h"

GST_DEBUG_CATEGORY_STATIC(quillmar_detect_debug);
#define GST_CAT_DEFAULT quillmar_detect_debug

namespace {

using Quillmar::Gst::ElementMessage;

// The element's C++ side: the detector of the stream's format, and its results as messages.
// Streaming thread, and the state changes that start and stop the stream.
struct DetectState {
  explicit DetectState(GstElement* element) : messages(element) {}

  void OnEvent(const Framework::VWMDetectionEvent& event) const {
    if (const LSNDetection* detection = event.GetDetection()) {
      if (!detection->isFound) return;
      messages.Post(gst_structure_new(
          "quillmar-detection", "cid", G_TYPE_UINT64, static_cast<guint64>(detection->cid),
          "timestamp", G_TYPE_STRING, Framework::WatermarkTime::Digits(detection->timestamp).c_str(),
          "time", G_TYPE_STRING, Framework::WatermarkTime::IsoText(detection->timestamp).c_str(),
          "quality", G_TYPE_DOUBLE, detection->quality, "media-time", G_TYPE_DOUBLE,
          detection->mediaDetectionTimestamp, nullptr));
    } else if (const CBasebandWMDetection* presence = event.GetPresence()) {
      messages.Post(gst_structure_new(
          "quillmar-presence", "present", G_TYPE_BOOLEAN,
          presence->state == CBasebandWMDetection::kPresent, "media-time", G_TYPE_DOUBLE,
          presence->mediaDetectionTimestamp, nullptr));
    }
  }

  // Ends the detector of the stream, when there is one.
  void Stop() {
    if (detector == nullptr) return;
    detector->StopProcessor();
    detector->DeinitProcessor();
    connection.disconnect();
    detector.reset();
  }

  ElementMessage messages;
  std::unique_ptr<Quillmar::Tools::ChannelLibrary> library;
  std::unique_ptr<Framework::ProcessorBase> detector;
  Framework::EventConnection connection;
};

}  // namespace

struct _GstQuillmarDetect {
  GstVideoFilter parent;
  DetectState* state;
};

G_DEFINE_TYPE(GstQuillmarDetect, gst_quillmar_detect, GST_TYPE_VIDEO_FILTER)

namespace {

void Finalize(GObject* object) {
  delete GST_QUILLMAR_DETECT(object)->state;
  G_OBJECT_CLASS(gst_quillmar_detect_parent_class)->finalize(object);
}

gboolean Stop(GstBaseTransform* transform) {
  GST_QUILLMAR_DETECT(transform)->state->Stop();
  return TRUE;
}

// A detector for the stream's format, made afresh on every format.
gboolean SetInfo(GstVideoFilter* filter, GstCaps*, GstVideoInfo*, GstCaps*, GstVideoInfo* info) {
  DetectState& state = *GST_QUILLMAR_DETECT(filter)->state;
  state.Stop();
  try {
    if (state.library == nullptr) state.library = std::make_unique<Quillmar::Tools::ChannelLibrary>();
    state.detector = Quillmar::Tools::CreateDetector(*state.library);
  } catch (const std::exception& error) {
    GST_ELEMENT_ERROR(filter, LIBRARY, INIT, ("%s", error.what()), (nullptr));
    return FALSE;
  }
  auto* algorithm = dynamic_cast<Framework::AlgorithmBase*>(state.detector.get());
  state.connection = algorithm->GetEventSignal().ConnectFor<Framework::VWMDetectionEvent>(
      [&state](const Framework::VWMDetectionEvent& event) { state.OnEvent(event); });
  state.detector->SetFormat(Quillmar::Gst::VideoFrameView::FormatOf(*info));
  if (!state.detector->InitProcessor() || !state.detector->StartProcessor()) {
    GST_ELEMENT_ERROR(filter, LIBRARY, INIT, ("the detector plug-in did not start"), (nullptr));
    state.Stop();
    return FALSE;
  }
  return TRUE;
}

GstFlowReturn TransformFrameInPlace(GstVideoFilter* filter, GstVideoFrame* frame) {
  DetectState& state = *GST_QUILLMAR_DETECT(filter)->state;
  state.messages.SetBuffer(&GST_BASE_TRANSFORM(filter)->segment, frame->buffer);
  Quillmar::Gst::VideoFrameView view(*frame);
  state.detector->DeliverFrame(&view.Get());
  state.messages.SetBuffer(nullptr, nullptr);
  return GST_FLOW_OK;
}

}  // namespace

static void gst_quillmar_detect_class_init(GstQuillmarDetectClass* klass) {
  GST_DEBUG_CATEGORY_INIT(quillmar_detect_debug, "quillmardetect", 0, "Quillmar watermark detector");
  G_OBJECT_CLASS(klass)->finalize = Finalize;
  GstElementClass* element = GST_ELEMENT_CLASS(klass);
  gst_element_class_set_static_metadata(
      element, "Quillmar watermark detector", "Filter/Analyzer/Video",
      "Reads the invisible watermark of the frames going through and posts each decoded second "
      "and each change of presence as a bus message",
      "Quillmar Baseband SDK");
  Quillmar::Gst::VideoFrameView::AddPadTemplates(element);
  GST_BASE_TRANSFORM_CLASS(klass)->stop = Stop;
  GstVideoFilterClass* filter = GST_VIDEO_FILTER_CLASS(klass);
  filter->set_info = SetInfo;
  filter->transform_frame_ip = TransformFrameInPlace;
}

static void gst_quillmar_detect_init(GstQuillmarDetect* self) {
  self->state = new DetectState(GST_ELEMENT(self));
  gst_base_transform_set_passthrough(GST_BASE_TRANSFORM(self), TRUE);
}
