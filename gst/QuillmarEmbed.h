// quillmarembed: an in-place video filter that hosts one channel and marks every frame.
//
// Properties (set in NULL or READY; the running session keeps what it started with):
//   config-file    the configuration file                            (string, required)
//   program        the program whose CIDs and strength to use        (string, required)
//   duration       seconds to reserve; 0 reserves open-ended, extended as the stream runs
//   detector       look for prior watermarks and pause while one is there (default TRUE)
//   metadata       the encodation record's metadata (GstStructure of string fields)
//   channel-index  the channel's index within its host (default 0)
//
// The slot is reserved when the stream starts (caps and the first buffer). The encodation record
// is written at EOS, before the session stops; a stream torn down without EOS (back to READY or
// NULL) and a stream that fails close the session too, so the slot is always finalised.
//
// Bus messages (element messages; every structure also carries "timestamp", "stream-time" and
// "running-time" of the buffer being marked, GST_CLOCK_TIME_NONE outside streaming):
//   quillmar-embedding        energy (double), embedding (boolean): once a second of media
//   quillmar-detection        cid (string), timestamp (string, YYYYMMDDHHMMSS), quality (double)
//   quillmar-prior-watermark  present (boolean): a prior watermark appeared or went
//   quillmar-session          cid (uint), start (string, ISO 8601 UTC), reserved-seconds,
//                             embedded-seconds, frames, embedded-frames, bypassed-frames (uint64):
//                             the session closed
// The channel's errors while it opens become GST_ELEMENT_ERROR with the listener's text (nothing
// reserved when the configuration, the program or the licence cannot be used); its errors while
// it runs, from which it recovers on its own, become GST_ELEMENT_WARNING.
#pragma once

#include <gst/video/gstvideofilter.h>

G_BEGIN_DECLS

#define GST_TYPE_QUILLMAR_EMBED (gst_quillmar_embed_get_type())
G_DECLARE_FINAL_TYPE(GstQuillmarEmbed, gst_quillmar_embed, GST, QUILLMAR_EMBED, GstVideoFilter)

G_END_DECLS
