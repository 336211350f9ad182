#include "gst/QuillmarElements.h"

#include "gst/QuillmarDetect.h"
#include "gst/QuillmarEmbed.h"

namespace Quillmar::Gst {

gboolean RegisterElements(GstPlugin* plugin) {
  return gst_element_register(plugin, "quillmarembed", GST_RANK_NONE, GST_TYPE_QUILLMAR_EMBED) &&
         gst_element_register(plugin, "quillmardetect", GST_RANK_NONE, GST_TYPE_QUILLMAR_DETECT);
}

}  // namespace Quillmar::Gst
