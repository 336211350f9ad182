// Part of the Lumenseal detector library's public, header-only API: the product includes these
// result types to read what the detector reports, and never links the detector library.
//
// MirroredDetectionEvent: the detector found the picture mirrored.
#pragma once

struct MirroredDetectionEvent {
  // True for a left-right mirror, false for an upside-down one.
  bool isHorizontal = true;
  // Where in the media the mirror was found, in seconds from its start.
  double mediaDetectionTimestamp = 0.0;
};
