// The GStreamer plug-in "quillmar": the elements quillmarembed and quillmardetect.
// GST_PLUGIN_DEFINE names the package of the plug-in through PACKAGE.
#define PACKAGE "quillmar"
#include <gst/gst.h>

#include "gst/QuillmarElements.h"

namespace {

gboolean InitPlugin(GstPlugin* plugin) { return Quillmar::Gst::RegisterElements(plugin); }

}  // namespace

GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, quillmar,
                  "Quillmar invisible video watermark: embedder and detector", InitPlugin, "1.0.0",
                  "Proprietary", "Quillmar Baseband SDK", "https://quillmar.invalid/")
