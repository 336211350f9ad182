// Part of the Lumenseal detector library's public, header-only API: the product includes these
// result types to read what the detector reports, and never links the detector library.
//
// ScaleFoundEvent: the detector found the picture scaled. It is a FrameScaling::Scale, so its
// address serves wherever a scale is asked for.
#pragma once

#include "FrameScaling.h"

struct ScaleFoundEvent : FrameScaling::Scale {
  // Where in the media the scale was found, in seconds from its start.
  double mediaDetectionTimestamp = 0.0;
};
