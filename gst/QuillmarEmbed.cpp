#include "gst/QuillmarEmbed.h"

#include <gst/video/video.h>

#include <map>
#include <memory>
#include <string>

#include "gst/ElementMessage.h"
#include "gst/VideoFrameView.h"
#include "tools/EmbeddingSession.h"

GST_DEBUG_CATEGORY_STATIC(quillmar_embed_debug);
#define GST_CAT_DEFAULT quillmar_embed_debug

namespace {

using Quillmar::Gst::ElementMessage;
using Quillmar::Tools::EmbeddingSession;

enum Property : guint {
  kPropertyConfigFile = 1,
  kPropertyProgram,
  kPropertyDuration,
  kPropertyDetector,
  kPropertyMetadata,
  kPropertyChannelIndex,
};

constexpr guint kDefaultDuration = 0;
constexpr gboolean kDefaultDetector = TRUE;
constexpr gint kDefaultChannelIndex = 0;
constexpr char kPriorWatermarkFound[] = "Prior watermark found - embedding pending.";
constexpr char kPriorWatermarkGone[] = "Prior watermark no longer present - embedding resumed.";
constexpr GParamFlags kReadyFlags = static_cast<GParamFlags>(
    G_PARAM_READWRITE | G_PARAM_STATIC_STRINGS | GST_PARAM_MUTABLE_READY);

// What the properties say. Guarded by the object lock; a session copies it when it opens.
struct Settings {
  std::string configFile;
  std::string program;
  guint duration = kDefaultDuration;
  bool detector = kDefaultDetector;
  GstStructure* metadata = nullptr;  // owned
  gint channelIndex = kDefaultChannelIndex;
};

std::map<std::string, std::string> MetadataOf(const GstStructure* metadata) {
  std::map<std::string, std::string> fields;
  if (metadata == nullptr) return fields;
  for (gint i = 0; i < gst_structure_n_fields(metadata); ++i) {
    const gchar* name = gst_structure_nth_field_name(metadata, static_cast<guint>(i));
    const GValue* value = gst_structure_get_value(metadata, name);
    if (G_VALUE_HOLDS_STRING(value)) {
      fields[name] = g_value_get_string(value);
    } else {
      gchar* text = gst_value_serialize(value);
      fields[name] = text != nullptr ? text : "";
      g_free(text);
    }
  }
  return fields;
}

// The channel's reports, turned into bus messages of the element.
class BusListener : public Framework::QuillmarBasebandEmbedderListener {
 public:
  explicit BusListener(ElementMessage& messages) : messages_(messages) {}

  void OnEmbeddingReport(float energy, bool embedding) override {
    messages_.Post(gst_structure_new("quillmar-embedding", "energy", G_TYPE_DOUBLE,
                                     static_cast<double>(energy), "embedding", G_TYPE_BOOLEAN,
                                     embedding, nullptr));
  }
  void OnError(const char* message) override {
    lastError_ = message;
    if (streaming_) messages_.Warn(message);
  }
  void OnWarning(const char* message) override {
    if (std::string(message) == kPriorWatermarkFound) return PriorWatermark(true);
    messages_.Warn(message);
  }
  void OnInfo(const char* message) override {
    if (std::string(message) == kPriorWatermarkGone) PriorWatermark(false);
  }
  void OnDetection(bool, const char* cid, const char* timestamp, double quality) override {
    messages_.Post(gst_structure_new("quillmar-detection", "cid", G_TYPE_STRING, cid, "timestamp",
                                     G_TYPE_STRING, timestamp, "quality", G_TYPE_DOUBLE, quality,
                                     nullptr));
  }

  // Errors while the session opens end it; once it runs, the channel recovers from them itself.
  void SetStreaming(bool streaming) { streaming_ = streaming; }
  const std::string& LastError() const { return lastError_; }

 private:
  void PriorWatermark(bool present) {
    messages_.Post(gst_structure_new("quillmar-prior-watermark", "present", G_TYPE_BOOLEAN,
                                     present, nullptr));
  }

  ElementMessage& messages_;
  bool streaming_ = false;
  std::string lastError_;
};

// The element's C++ side: its settings, and the session of the stream that runs.
struct EmbedState {
  explicit EmbedState(GstElement* element) : messages(element), listener(messages) {}

  Settings settings;  // Guarded by the object lock
  // Streaming thread, and the state change that stops it
  ElementMessage messages;
  BusListener listener;
  std::unique_ptr<Quillmar::Tools::ChannelLibrary> library;
  std::unique_ptr<EmbeddingSession> session;
  Framework::VideoFormatInfo format;
};

}  // namespace

struct _GstQuillmarEmbed {
  GstVideoFilter parent;
  EmbedState* state;
};

G_DEFINE_TYPE(GstQuillmarEmbed, gst_quillmar_embed, GST_TYPE_VIDEO_FILTER)

namespace {

EmbedState& StateOf(gpointer element) { return *GST_QUILLMAR_EMBED(element)->state; }

// Ends the session of the stream, when one runs: the record, the finalised slot, a message.
void CloseSession(GstQuillmarEmbed* self) {
  EmbedState& state = *self->state;
  if (state.session == nullptr) return;
  state.listener.SetStreaming(false);
  const Quillmar::Tools::SessionSummary summary = state.session->Close();
  state.session.reset();
  state.messages.Post(gst_structure_new(
      "quillmar-session", "cid", G_TYPE_UINT, summary.cid, "start", G_TYPE_STRING,
      Framework::IsoUtcText(summary.start).c_str(), "reserved-seconds", G_TYPE_UINT64,
      static_cast<guint64>(summary.reservedSeconds), "embedded-seconds", G_TYPE_UINT64,
      static_cast<guint64>(summary.embeddedSeconds), "frames", G_TYPE_UINT64,
      static_cast<guint64>(summary.frames), "embedded-frames", G_TYPE_UINT64,
      static_cast<guint64>(summary.embeddedFrames), "bypassed-frames", G_TYPE_UINT64,
      static_cast<guint64>(summary.bypassedFrames), nullptr));
}

// Reserves the slot and starts the channel for the stream's format. On failure posts the error
// and returns false; nothing stays reserved.
bool OpenSession(GstQuillmarEmbed* self) {
  EmbedState& state = *self->state;
  Quillmar::Tools::SessionRequest request;
  GST_OBJECT_LOCK(self);
  request.configFile = state.settings.configFile;
  request.program = state.settings.program;
  request.durationSeconds = state.settings.duration;
  request.detector = state.settings.detector;
  request.channelIndex = static_cast<std::uint64_t>(state.settings.channelIndex);
  request.metadata = MetadataOf(state.settings.metadata);
  GST_OBJECT_UNLOCK(self);
  request.format = state.format;
  request.recordTexts[0] = "quillmarembed";
  request.recordTexts[1] = GST_OBJECT_NAME(self);
  request.recordTexts[2] = request.program;

  std::string problem;
  if (!Quillmar::Tools::ReadSessionCids(request.configFile, request.program, request, problem)) {
    GST_ELEMENT_ERROR(self, RESOURCE, SETTINGS, ("%s", problem.c_str()), (nullptr));
    return false;
  }
  try {
    if (state.library == nullptr) state.library = std::make_unique<Quillmar::Tools::ChannelLibrary>();
    state.session = std::make_unique<EmbeddingSession>(*state.library, state.listener);
    if (state.session->Open(request)) {
      state.listener.SetStreaming(true);
      return true;
    }
    problem = state.listener.LastError().empty() ? state.session->LastErrorText()
                                                 : state.listener.LastError();
  } catch (const std::exception& error) {
    problem = error.what();
  }
  state.session.reset();
  GST_ELEMENT_ERROR(self, LIBRARY, INIT, ("%s", problem.c_str()), (nullptr));
  return false;
}

void SetProperty(GObject* object, guint id, const GValue* value, GParamSpec* spec) {
  Settings& settings = StateOf(object).settings;
  GST_OBJECT_LOCK(object);
  switch (id) {
    case kPropertyConfigFile: settings.configFile = g_value_get_string(value) ? g_value_get_string(value) : ""; break;
    case kPropertyProgram: settings.program = g_value_get_string(value) ? g_value_get_string(value) : ""; break;
    case kPropertyDuration: settings.duration = g_value_get_uint(value); break;
    case kPropertyDetector: settings.detector = g_value_get_boolean(value); break;
    case kPropertyMetadata:
      if (settings.metadata != nullptr) gst_structure_free(settings.metadata);
      settings.metadata = static_cast<GstStructure*>(g_value_dup_boxed(value));
      break;
    case kPropertyChannelIndex: settings.channelIndex = g_value_get_int(value); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec); break;
  }
  GST_OBJECT_UNLOCK(object);
}

void GetProperty(GObject* object, guint id, GValue* value, GParamSpec* spec) {
  const Settings& settings = StateOf(object).settings;
  GST_OBJECT_LOCK(object);
  switch (id) {
    case kPropertyConfigFile: g_value_set_string(value, settings.configFile.c_str()); break;
    case kPropertyProgram: g_value_set_string(value, settings.program.c_str()); break;
    case kPropertyDuration: g_value_set_uint(value, settings.duration); break;
    case kPropertyDetector: g_value_set_boolean(value, settings.detector); break;
    case kPropertyMetadata: g_value_set_boxed(value, settings.metadata); break;
    case kPropertyChannelIndex: g_value_set_int(value, settings.channelIndex); break;
    default: G_OBJECT_WARN_INVALID_PROPERTY_ID(object, id, spec); break;
  }
  GST_OBJECT_UNLOCK(object);
}

void Finalize(GObject* object) {
  EmbedState* state = GST_QUILLMAR_EMBED(object)->state;
  if (state->settings.metadata != nullptr) gst_structure_free(state->settings.metadata);
  delete state;
  G_OBJECT_CLASS(gst_quillmar_embed_parent_class)->finalize(object);
}

gboolean Stop(GstBaseTransform* transform) {
  CloseSession(GST_QUILLMAR_EMBED(transform));
  return TRUE;
}

// The record is written before EOS goes on, so a pipeline that ends finds it written.
gboolean SinkEvent(GstBaseTransform* transform, GstEvent* event) {
  if (GST_EVENT_TYPE(event) == GST_EVENT_EOS) CloseSession(GST_QUILLMAR_EMBED(transform));
  return GST_BASE_TRANSFORM_CLASS(gst_quillmar_embed_parent_class)->sink_event(transform, event);
}

// A new format ends the session of the old one; the next buffer opens one for the new format.
gboolean SetInfo(GstVideoFilter* filter, GstCaps*, GstVideoInfo*, GstCaps*, GstVideoInfo* info) {
  GstQuillmarEmbed* self = GST_QUILLMAR_EMBED(filter);
  const Framework::VideoFormatInfo format = Quillmar::Gst::VideoFrameView::FormatOf(*info);
  if (self->state->session != nullptr && format.ToString() != self->state->format.ToString()) {
    CloseSession(self);
  }
  self->state->format = format;
  return TRUE;
}

GstFlowReturn TransformFrameInPlace(GstVideoFilter* filter, GstVideoFrame* frame) {
  GstQuillmarEmbed* self = GST_QUILLMAR_EMBED(filter);
  EmbedState& state = *self->state;
  state.messages.SetBuffer(&GST_BASE_TRANSFORM(filter)->segment, frame->buffer);
  const bool open = state.session != nullptr || OpenSession(self);
  if (open) {
    Quillmar::Gst::VideoFrameView view(*frame);
    state.session->Deliver(view.Get());
  }
  state.messages.SetBuffer(nullptr, nullptr);
  return open ? GST_FLOW_OK : GST_FLOW_ERROR;
}

}  // namespace

static void gst_quillmar_embed_class_init(GstQuillmarEmbedClass* klass) {
  GST_DEBUG_CATEGORY_INIT(quillmar_embed_debug, "quillmarembed", 0, "Quillmar watermark embedder");
  GObjectClass* object = G_OBJECT_CLASS(klass);
  object->set_property = SetProperty;
  object->get_property = GetProperty;
  object->finalize = Finalize;
  g_object_class_install_property(
      object, kPropertyConfigFile,
      g_param_spec_string("config-file", "Configuration file",
                          "The signed configuration file of the channel", nullptr, kReadyFlags));
  g_object_class_install_property(
      object, kPropertyProgram,
      g_param_spec_string("program", "Program", "The program whose CIDs and strength to use",
                          nullptr, kReadyFlags));
  g_object_class_install_property(
      object, kPropertyDuration,
      g_param_spec_uint("duration", "Duration",
                        "Seconds to reserve; 0 reserves open-ended, extended as the stream runs",
                        0, G_MAXUINT32, kDefaultDuration, kReadyFlags));
  g_object_class_install_property(
      object, kPropertyDetector,
      g_param_spec_boolean("detector", "Detector",
                           "Look for prior watermarks, and pass frames unmarked while one is there",
                           kDefaultDetector, kReadyFlags));
  g_object_class_install_property(
      object, kPropertyMetadata,
      g_param_spec_boxed("metadata", "Metadata",
                         "The encodation record's metadata, as string fields: "
                         "\"meta, itemid=(string)A-1, slug=(string)News\"",
                         GST_TYPE_STRUCTURE, kReadyFlags));
  g_object_class_install_property(
      object, kPropertyChannelIndex,
      g_param_spec_int("channel-index", "Channel index", "The channel's index within its host", 0,
                       G_MAXINT, kDefaultChannelIndex, kReadyFlags));

  GstElementClass* element = GST_ELEMENT_CLASS(klass);
  gst_element_class_set_static_metadata(
      element, "Quillmar watermark embedder", "Filter/Effect/Video",
      "Embeds an invisible watermark (a content identifier and the time) into every frame, in a "
      "time slot reserved in the shared time-slot database",
      "Quillmar Baseband SDK");
  Quillmar::Gst::VideoFrameView::AddPadTemplates(element);

  GstBaseTransformClass* transform = GST_BASE_TRANSFORM_CLASS(klass);
  transform->stop = Stop;
  transform->sink_event = SinkEvent;
  GstVideoFilterClass* filter = GST_VIDEO_FILTER_CLASS(klass);
  filter->set_info = SetInfo;
  filter->transform_frame_ip = TransformFrameInPlace;
}

static void gst_quillmar_embed_init(GstQuillmarEmbed* self) {
  self->state = new EmbedState(GST_ELEMENT(self));
}
