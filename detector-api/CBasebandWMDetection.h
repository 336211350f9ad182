// Part of the Lumenseal detector library's public, header-only API: the product includes these
// result types to read what the detector reports, and never links the detector library.
//
// CBasebandWMDetection: whether a watermark is present in the picture, before it is decoded.
// Readers rely on `state` being the first member, a 32-bit value.
#pragma once

#include <cstddef>
#include <cstdint>

struct CBasebandWMDetection {
  static constexpr std::int32_t kAbsent = 0;
  static constexpr std::int32_t kPresent = 1;

  // kPresent while a watermark is present in the picture; any other value means none is.
  std::int32_t state = kAbsent;
  // Where in the media the state was seen, in seconds from its start.
  double mediaDetectionTimestamp = 0.0;
};

static_assert(offsetof(CBasebandWMDetection, state) == 0, "the state must be the first member");
static_assert(sizeof(CBasebandWMDetection::state) == 4, "the state is 32 bits");
