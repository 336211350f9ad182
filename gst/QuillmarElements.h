// Every element of the quillmar plug-in, registered in one place.
#pragma once

#include <gst/gst.h>

namespace Quillmar::Gst {

// Registers quillmarembed and quillmardetect with `plugin` (null: for this process only, as a
// program that links the elements does).
gboolean RegisterElements(GstPlugin* plugin);

}  // namespace Quillmar::Gst
