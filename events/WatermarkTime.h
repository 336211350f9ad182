// The watermark's clock: a watermark carries its time as whole seconds since
// 2000-01-01 00:00:00 UTC, which detectors report as a signed 32-bit count.
//
// Thread-safe: stateless.
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <cstdint>
#include <string>

#include "framework/platform/Export.h"
#include "framework/platform/SystemTime.h"

namespace Framework {

class QUILLMAR_API WatermarkTime {
 public:
  // The text the epoch is read from.
  static constexpr char kEpochText[] = "2000-01-01 00:00:00.000";

  // 2000-01-01 00:00:00.
  static boost::posix_time::ptime Epoch();

  // The epoch plus `offset`, by the ptime rules: a not-a-date-time offset gives not-a-date-time,
  // an infinite offset gives the infinity of its sign.
  static boost::posix_time::ptime FromOffset(const boost::posix_time::time_duration& offset);

  // The time of a detector's time stamp: its low 32 bits taken as signed seconds from the epoch.
  static boost::posix_time::ptime FromSeconds(std::int64_t timestamp);

  // Whole seconds from the epoch to `time` (UTC), rounded down; 0 when `time` is no valid date
  // (the zero SYSTEMTIME of a slot never set).
  static std::int64_t SecondsOf(const SYSTEMTIME& time);

  // The time of a detector's time stamp as 14 digits, YYYYMMDDHHMMSS: the ISO 8601 basic form
  // without its "T" ("20000101000000" for 0).
  static std::string Digits(std::int64_t timestamp);

  // The time of a detector's time stamp in ISO 8601 UTC: "2026-11-21T10:15:00Z".
  static std::string IsoText(std::int64_t timestamp);
};

}  // namespace Framework
