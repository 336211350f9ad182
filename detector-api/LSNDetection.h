// Part of the Lumenseal detector library's public, header-only API: the product includes these
// result types to read what the detector reports, and never links the detector library.
//
// LSNDetection: one decoded watermark. A plain value; the detector owns the instances its events
// point at.
#pragma once

#include <cstdint>
#include <string>

struct LSNDetection {
  // True when the whole payload was decoded, false for a partial read.
  bool isFullDetection = false;
  // The payload as text.
  std::string payload;
  // The content identifier carried by the watermark.
  std::uint64_t cid = 0;
  // Watermark time: whole seconds since 2000-01-01 00:00:00 UTC (a signed 32-bit count in 64 bits).
  std::int64_t timestamp = 0;
  // How well the watermark was read, 0 (not at all) to 1.
  double quality = 0.0;
  // The name under which the CID is known.
  std::string cidName;
  // Where in the media the watermark was read, in seconds from its start.
  double mediaDetectionTimestamp = 0.0;
  // False when the detector looked and found nothing; the other members are then meaningless.
  bool isFound = false;
};
